// Thin wrappers of HDF5's C interface: handles that close themselves, and errors as exceptions.
#pragma once

#include <hdf5.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace drelt::hdf5 {

// A call of the library failed; the text is the library's.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The innermost message of the library's error stack.
inline std::string lastMessage() {
    std::string text = "no message";
    const auto take = [](unsigned, const H5E_error2_t* error, void* to) -> herr_t {
        if (error->desc != nullptr) *static_cast<std::string*>(to) = error->desc;
        return 0;
    };
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_DOWNWARD, take, &text);
    return text;
}

// Passes a result on; a negative one is a failure.
template <class Result>
Result checked(Result result) {
    if (result < 0) throw Failure(lastMessage());
    return result;
}

class Handle {
public:
    using Close = herr_t (*)(hid_t);

    Handle(hid_t id, Close closer) : id_(checked(id)), close_(closer) {}
    ~Handle() {
        if (id_ >= 0) close_(id_);
    }
    Handle(Handle&& other) noexcept : id_(std::exchange(other.id_, -1)), close_(other.close_) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Handle& operator=(Handle&&) = delete;

    operator hid_t() const { return id_; }  // NOLINT: the library's calls take it
    // Closes now, and reports what the destructor would hide.
    void close() { checked(close_(std::exchange(id_, -1))); }

private:
    hid_t id_;
    Close close_;
};

// Keeps the library from printing its errors, for the scope.
class Silence {
public:
    Silence() {
        H5Eget_auto2(H5E_DEFAULT, &print_, &data_);
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    }
    ~Silence() { H5Eset_auto2(H5E_DEFAULT, print_, data_); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    H5E_auto2_t print_ = nullptr;
    void* data_ = nullptr;
};

// A text attribute.
inline void writeText(hid_t object, const char* name, const std::string& text) {
    const Handle type(H5Tcopy(H5T_C_S1), H5Tclose);
    checked(H5Tset_size(type, text.size() + 1));
    checked(H5Tset_cset(type, H5T_CSET_UTF8));
    const Handle space(H5Screate(H5S_SCALAR), H5Sclose);
    const Handle attribute(H5Acreate2(object, name, type, space, H5P_DEFAULT, H5P_DEFAULT),
                           H5Aclose);
    checked(H5Awrite(attribute, type, text.c_str()));
}

inline std::string readText(hid_t object, const char* name) {
    const Handle attribute(H5Aopen(object, name, H5P_DEFAULT), H5Aclose);
    const Handle type(H5Aget_type(attribute), H5Tclose);
    std::string text(H5Tget_size(type), '\0');
    checked(H5Aread(attribute, type, text.data()));
    return text.substr(0, text.find('\0'));
}

}  // namespace drelt::hdf5
