// Hooks: places in a world's step where callers can run their own code for a body.
#pragma once

#include <functional>
#include <utility>
#include <vector>

namespace drelt {

// Three lists of hooks. The world calls them in the order in which they were added. dx is the node
// spacing [m], dt the time step [s]. An empty function throws std::bad_function_call when it is called.
template <class Object>
class mlLifeCycle {
public:
    using SpacedHook = std::function<void(Object&, float dx, float dt)>;
    using TimedHook = std::function<void(Object&, float dt)>;

    // Called after external forces are applied and before the dynamics step. Controllers set joint
    // commands here.
    void addBeforeStep(SpacedHook hook) { beforeStep.push_back(std::move(hook)); }
    // Called right after the dynamics step.
    void addAfterStep(TimedHook hook) { afterStep.push_back(std::move(hook)); }
    // Called after the afterStep hooks of all bodies, before meshes and samples follow the bodies.
    void addBeforeUpdate(SpacedHook hook) { beforeUpdate.push_back(std::move(hook)); }

    std::vector<SpacedHook> beforeStep;
    std::vector<TimedHook> afterStep;
    std::vector<SpacedHook> beforeUpdate;
};

}  // namespace drelt
