// Finds the shader files.
#pragma once

#include <string>

namespace drelt {

// The path of a shader such as "shaders/flat.vs" under the root folder. The environment variable
// LOGL_ROOT_PATH names the root; if it is unset, the root is the folder that came with the program, and if
// it is empty, three folders above the working directory. The first call chooses.
std::string shaderPath(const std::string& path);

}  // namespace drelt
