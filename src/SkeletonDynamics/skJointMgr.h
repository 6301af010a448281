// The joints of a body, and how their state reaches the nodes of the mesh.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "SkeletonDynamics/skJoint.h"

namespace drelt {

class nodeMgr;

class skJointMgr {
public:
    void add(const std::shared_ptr<skJoint>& joint);
    // Null for an unknown name.
    std::shared_ptr<skJoint> find(const std::string& name) const;

    // Ties each joint that has a master to it. Raises std::invalid_argument, naming both, where the
    // master does not exist or has fewer degrees of freedom.
    void connectMimics();
    // Makes the current pose of the nodes the joints' zero.
    void anchor();
    // Sets the nodes to the joints' current frames.
    void updateNodes(nodeMgr& nodes) const;

    std::vector<std::shared_ptr<skJoint>> joints;
    std::map<std::string, std::shared_ptr<skJoint>> byName;
};

}  // namespace drelt
