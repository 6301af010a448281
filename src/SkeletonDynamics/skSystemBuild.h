// From a description to DART joints and bodies.
#pragma once

#include <memory>

namespace dart::dynamics {
class Skeleton;
}

namespace drelt {

class SkeletonSystem;
class skJointMgr;
class skLinkMgr;

// Name of the frame that the fluid grid moves with. No link may have this name.
inline constexpr const char* kMovingFrameName = "simple_frame";

// Creates DART joints and bodies by a depth-first walk from the root joint, and appends their links and
// joints to the lists, after the world's link. A joint without children creates nothing. A joint of an
// unsupported type is reported on DART's error stream and left out; its children start a new tree.
// Throws std::invalid_argument for a link whose name is empty or taken, and for numbers that no body can
// have (DescriptionCheck.h).
void buildSkeletonTree(const SkeletonSystem& description,
                       const std::shared_ptr<dart::dynamics::Skeleton>& skeleton, skLinkMgr& links,
                       skJointMgr& joints);

}  // namespace drelt
