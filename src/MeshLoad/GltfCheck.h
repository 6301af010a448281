// Checks of a glTF file before the importer reads it.
#pragma once

#include <string>

namespace drelt {

// Throws std::runtime_error for a .gltf or .glb file on which the importer would end the process: a skin
// without inverse bind matrices, or too few of them, node trees without an end, text nested too deeply.
// Everything else, files of other formats and files that cannot be read included, is left to the importer.
void checkGltf(const std::string& path);

}  // namespace drelt
