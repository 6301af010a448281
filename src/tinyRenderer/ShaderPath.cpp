#include "tinyRenderer/ShaderPath.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace drelt {

namespace {

namespace fs = std::filesystem;

// Folder of the module or program that holds this code. Read when the code is loaded, because the name
// can be relative to the working directory at that moment.
const fs::path programFolder = [] {
    static const char here = 0;
    Dl_info found{};
    std::error_code error;
    if (dladdr(&here, &found) == 0 || found.dli_fname == nullptr) return fs::path();
    return fs::absolute(found.dli_fname, error).parent_path();
}();

// An installed module has the shaders beside it; otherwise they are in the sources.
std::string builtInRoot() {
    std::error_code error;
    const fs::path installed = programFolder / "drelt-renderer";
    if (fs::is_directory(installed / "shaders", error)) return installed.string();
    return DRELT_RENDERER_SOURCES;
}

}  // namespace

std::string shaderPath(const std::string& path) {
    static const std::string root = [] {
        const char* const given = std::getenv("LOGL_ROOT_PATH");
        return given != nullptr ? std::string(given) : builtInRoot();
    }();
    return root.empty() ? "../../../" + path : root + "/" + path;
}

}  // namespace drelt
