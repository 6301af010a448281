// Checks of a glTF file before the importer reads it.
#pragma once

#include <string>

namespace drelt {

// Throws std::runtime_error for a .gltf or .glb file on which the importer would end the process: if a skin
// has too few inverse bind matrices or none, if a node is listed as a child twice or is its own ancestor, or
// if nodes or text nest too deeply. Leaves all other files to the importer, also those of other formats and
// those that cannot be read.
void checkGltf(const std::string& path);

}  // namespace drelt
