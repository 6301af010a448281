// Checks of an imported scene. Importers hand over what a file says, even if it makes no sense.
#pragma once

#include <assimp/scene.h>

#include <string>

namespace drelt {

// Importers and the builder of bodies walk node trees by recursion; models stay far below this depth.
inline constexpr int kDeepestTree = 2000;
// Throws the std::runtime_error for a tree deeper than this.
[[noreturn]] void refuseDepth(const std::string& path);

// File units per metre from the scene's metadata, 1 if the entry is absent. Throws std::runtime_error
// unless the entry lies between 1e-9 and 1e9.
double unitScaleOf(const aiScene& scene, const std::string& path);

// Throws std::runtime_error if a vertex, a bone or a node has a number that is not finite or above 1e12, if a
// face or a bone names a vertex that does not exist, if nodes nest too deeply, or if the skin's weights do not
// fit into memory. The message names the place in the file.
void checkScene(const aiScene& scene, const std::string& path);

}  // namespace drelt
