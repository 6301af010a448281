// The order in which a body's samples stand.
#pragma once

#include <vector>

#include "MeshLoad/MeshFace.h"
#include "MeshLoad/SkeletalMesh.h"

namespace drelt {

// Sorts samples by link, and those of a link along a space-filling curve (Morton, 1966) through their
// initial places: neighbours in the list are neighbours on the skin, so that what they read and write
// of the grid is still in the cache.
void sortByLinkAndPlace(std::vector<MeshSample>& samples, const SkeletalMesh& mesh);

}  // namespace drelt
