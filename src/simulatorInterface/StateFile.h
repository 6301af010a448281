// State files: HDF5, compressed, with a checksum of the whole file after what HDF5 reads. A file is written under another name in
// the same folder, brought to the disk and then renamed, so its own name always stands for a whole file.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "supplement/StateStore.h"

namespace drelt {

// What a script adds to a state: bytes under a key. The kind tells the reader what they are.
struct StateExtra {
    std::string key;
    std::string kind;
    std::string bytes;
};

struct StateFileContent {
    std::vector<std::string> scene;  // lines "name = value"
    StateStore arrays;
    std::vector<StateExtra> extras;
};

// Writes what `list` visits. Makes missing folders, and removes what a killed process left of this file. Throws
// std::runtime_error if the file cannot be written; a file that was there is unchanged then.
void writeStateFile(const std::string& path, const std::vector<std::string>& scene,
                    const std::vector<StateExtra>& extras,
                    const std::function<void(StateVisitor&)>& list);

// Reads and checks a whole file. Throws std::runtime_error for one that cannot be read, is no state file, has
// another format, is damaged, or does not fit into memory.
StateFileContent readStateFile(const std::string& path);

}  // namespace drelt
