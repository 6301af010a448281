// A shared library that is looked for at run time.
#pragma once

namespace drelt {

// Opened for the life of the process: drivers leave threads and exit handlers behind.
class SharedLibrary {
public:
    // No error where there is no such library; then it has no functions.
    explicit SharedLibrary(const char* soname);

    // Sets `function` to the library's function of this name, and returns whether there is one.
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
