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

// Name of the frame that a body's grid moves with; no link may have it.
inline constexpr const char* kMovingFrameName = "simple_frame";

// Makes joints and bodies by a depth-first walk from the root joint, and appends their links and
// joints to the lists, after the world's link. A joint without children makes nothing. A joint
// of an unsupported type is reported on DART's error stream and left out; its children start
// a new tree. Raises std::invalid_argument for a link whose name is empty or taken.
void buildSkeletonTree(const SkeletonSystem& description,
                       const std::shared_ptr<dart::dynamics::Skeleton>& skeleton, skLinkMgr& links,
                       skJointMgr& joints);

}  // namespace drelt
