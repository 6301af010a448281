// Checks of a description's numbers before bodies are built from it.
#pragma once

namespace drelt {

struct SkeletonJoint;
struct SkeletonLink;

// The least mass [kg] that a joint which forces move needs on it, without the mass of samples.
inline constexpr double kLeastMass = 1e-30;

// Where a joint with limits rests: at zero, or if they exclude zero, in their middle.
double restWithin(const SkeletonJoint& joint);

// Throws std::invalid_argument, which names joint or link and the number, for numbers without meaning and
// for those on which DART would end the process, when it builds the joint and its link or in a step. Masses may
// be zero or negative; skSystem::massObstacle tells which steps these allow.
void requireBuildable(const SkeletonJoint& joint, const SkeletonLink& link);

}  // namespace drelt
