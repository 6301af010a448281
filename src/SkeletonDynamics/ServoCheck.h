// Whether DART's solver can hold the joints of a body that follow prescribed velocities.
#pragma once

namespace dart::dynamics {
class Joint;
class Skeleton;
}  // namespace dart::dynamics

namespace drelt {

// The first servo or mimic joint with several degrees of freedom on which DART would end the process in
// the skeleton's present pose; null if there is none. DART wants the joint's response to unit impulses to
// be symmetric to 1e-6 in absolute terms. Links of very small mass or moment of inertia respond so
// strongly that rounding alone exceeds this. Call it again whenever the skeleton has moved.
const dart::dynamics::Joint* findUnsolvableServo(dart::dynamics::Skeleton& skeleton);

}  // namespace drelt
