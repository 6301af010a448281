#include "tinyRenderer/SharedLibrary.h"

#include <dlfcn.h>

namespace drelt {

SharedLibrary::SharedLibrary(const char* soname) : handle_(dlopen(soname, RTLD_NOW | RTLD_LOCAL)) {}

void* SharedLibrary::address(const char* name) const {
    return handle_ == nullptr ? nullptr : dlsym(handle_, name);
}

}  // namespace drelt
