// How scripts call a simulator: one thread at a time.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <utility>

#include "simulatorInterface/InUse.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace drelt {

using SimulatorClass = pybind11::class_<coupledLBM_sim3D, std::shared_ptr<coupledLBM_sim3D>>;

// A member function that raises RuntimeError while another thread is in one of these.
template <class Result, class... Args>
auto alone(const char* name, Result (coupledLBM_sim3D::*call)(Args...)) {
    return [=](coupledLBM_sim3D& self, Args... args) -> Result {
        const InUse use(self.inUse, name);
        return (self.*call)(std::forward<Args>(args)...);
    };
}

// Restart, state files and a controller's state.
void bindState(SimulatorClass& simulator);

}  // namespace drelt
