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

    // Ties each mimic joint to its master. Throws std::invalid_argument, which names both, if the master
    // does not exist or their degrees of freedom do not fit.
    void connectMimics();
    // Makes the current pose of the nodes the zero of the joints.
    void anchor();
    // Moves the nodes to the current frames of the joints.
    void updateNodes(nodeMgr& nodes) const;

    std::vector<std::shared_ptr<skJoint>> joints;
    std::map<std::string, std::shared_ptr<skJoint>> byName;
};

}  // namespace drelt
