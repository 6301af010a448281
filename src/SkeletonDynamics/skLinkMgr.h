// The links of a body and the records that they share with the device.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/twoSideDataWrapper.h"
#include "SkeletonDynamics/skLink.h"
#include "SkeletonDynamics/skLinkData.h"

namespace drelt {

// Order of the links: first the world, then one link per body in the order of a depth-first walk over the
// joints, last the moving frame.
class skLinkMgr : public GpuCopyable {
public:
    explicit skLinkMgr(int device) : GpuCopyable(device) {}
    ~skLinkMgr();
    skLinkMgr(const skLinkMgr&) = delete;
    skLinkMgr& operator=(const skLinkMgr&) = delete;

    void add(const std::shared_ptr<skLink>& link);
    int count() const { return static_cast<int>(links.size()); }
    // Null for an unknown name.
    std::shared_ptr<skLink> find(const std::string& name) const;
    // The names of all links in quotes, for messages.
    std::string listNames() const;

    // Allocates one record per link on both sides, with zero wrenches. Call it when the list is complete.
    void allocateRecords();
    // Copies poses and velocities from DART into the host records. Wrenches keep their values.
    void refreshRecords();
    void copyToDevice();
    void copyToHost();
    // Adds the records' wrenches to the bodies, for the next dynamics step.
    void applyWrenches();

    std::vector<std::shared_ptr<skLink>> links;
    std::map<std::string, std::shared_ptr<skLink>> byName;
    std::vector<skLinkData> link_data_host;
    skLinkData* link_data_device = nullptr;
};

}  // namespace drelt
