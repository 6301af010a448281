// Places in a world's step where callers may run code of their own for a body.
#pragma once

#include <functional>
#include <utility>
#include <vector>

namespace drelt {

// Three lists of hooks, called by the world in the order in which they were added. dx is the node
// spacing [m], dt the time step [s]. Calling an empty function raises std::bad_function_call.
template <class Object>
class mlLifeCycle {
public:
    using SpacedHook = std::function<void(Object&, float dx, float dt)>;
    using TimedHook = std::function<void(Object&, float dt)>;

    // After external forces were applied and before the dynamics step: the place for controllers
    // that set joint commands.
    void addBeforeStep(SpacedHook hook) { beforeStep.push_back(std::move(hook)); }
    // Right after the dynamics step.
    void addAfterStep(TimedHook hook) { afterStep.push_back(std::move(hook)); }
    // After all afterStep hooks of all bodies and before meshes and samples follow the bodies.
    void addBeforeUpdate(SpacedHook hook) { beforeUpdate.push_back(std::move(hook)); }

    std::vector<SpacedHook> beforeStep;
    std::vector<TimedHook> afterStep;
    std::vector<SpacedHook> beforeUpdate;
};

}  // namespace drelt
