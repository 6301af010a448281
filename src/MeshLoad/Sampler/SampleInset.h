// How far samples stand inside the skin ("retraction").
//
// A body that acts on the fluid through kernels a few nodes wide acts as if it were larger than its
// skin. Samples that stand inside the skin, along the inward normal, make up for that: W.-P. Breugem,
// J. Comput. Phys. 231 (2012) 4469.
#pragma once

#include <vector>

#include "MeshLoad/MeshFace.h"
#include "MeshLoad/SkeletalMesh.h"

namespace drelt {

// For each sample, how far it stands inside the skin at rest [m]: the given distance [m], or half the
// local thickness where that is less. So the samples of a thin sheet stay on its mid-surface. A sample
// that moves this far against its unit normal is inside the skin.
//
// The local thickness is the length of the inward ray from the sample to where it leaves the skin. All
// meshes count together, so a skin may be split among them; their rest positions must share one frame.
// The result is 0 where the ray does not leave the skin: on an open sheet of one layer of triangles, or
// where the normal points into the body. It is also 0 where a sample has no normal.
//
// The result does not depend on the number of threads. Raises std::invalid_argument for a distance that
// is negative or not finite.
std::vector<float> sampleInsets(const SkeletalMesh& mesh, const std::vector<MeshSample>& samples,
                                double distance);

// Longest edge of the box around all faces at rest [m], along the axes; 0 without faces.
double largestExtent(const SkeletalMesh& mesh);

}  // namespace drelt
