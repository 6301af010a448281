// The order of a body's samples.
#pragma once

#include <vector>

#include "MeshLoad/MeshFace.h"
#include "MeshLoad/SkeletalMesh.h"

namespace drelt {

// Sorts samples by link, and the samples of a link along a space-filling curve (Morton, 1966) through their
// initial places. Neighbours in the list are then neighbours on the skin and use the same cached parts of
// the grid.
void sortByLinkAndPlace(std::vector<MeshSample>& samples, const SkeletalMesh& mesh);

}  // namespace drelt
