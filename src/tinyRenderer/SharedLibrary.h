// A shared library that is loaded at run time, if there is one.
#pragma once

namespace drelt {

// Stays open until the process ends: drivers leave threads and exit handlers behind.
class SharedLibrary {
public:
    // A missing library is no error; then it has no functions.
    explicit SharedLibrary(const char* soname);

    // Sets `function` to the library's function of this name; returns whether there is one.
    template <class Function>
    bool find(const char* name, Function*& function) const {
        function = reinterpret_cast<Function*>(address(name));
        return function != nullptr;
    }

private:
    void* address(const char* name) const;

    void* handle_;
};

}  // namespace drelt
