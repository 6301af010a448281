// Checks of an imported scene: importers hand over what a file says, whether it makes sense or not.
#pragma once

#include <assimp/scene.h>

#include <string>

namespace drelt {

// Importers and the builder of bodies walk node trees by recursion; models stay far below this depth.
inline constexpr int kDeepestTree = 2000;
// Throws the std::runtime_error for a tree that is deeper.
[[noreturn]] void refuseDepth(const std::string& path);

// File units in a metre from the scene's metadata, 1 if the entry is absent. Throws std::runtime_error
// unless it is a positive number from 1e-9 to 1e9.
double unitScaleOf(const aiScene& scene, const std::string& path);

// Throws std::runtime_error, which names the place in the file, if a vertex, a bone or a node has a number
// that is not finite (lengths: none above 1e12 units), if a face or a bone names a vertex that does not
// exist, if nodes nest too deeply, or if the skin's weights do not fit into memory.
void checkScene(const aiScene& scene, const std::string& path);

}  // namespace drelt
