// Where the shader files are.
#pragma once

#include <string>

namespace drelt {

// The file of a shader, "shaders/flat.vs" for one, under the root folder: what the environment
// variable LOGL_ROOT_PATH names at the first call or, where it is unset, the folder that came with the
// program. An empty variable means three folders above the working directory.
std::string shaderPath(const std::string& path);

}  // namespace drelt
