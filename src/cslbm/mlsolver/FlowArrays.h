// The arrays of a flow record that stand on the device, listed once.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

// Calls visit(field, name, perNode) for each array in the order of allocation; perNode is the number of
// entries per node, and 0 for the parameters, which have one entry in all.
template <class Visit>
void forEachDeviceArray(Visit&& visit) {
    constexpr int populations = 27;
    visit(&mlFlow::f, "f", populations);
    visit(&mlFlow::fPost, "fPost", populations);
    visit(&mlFlow::fStore, "fStore", populations);
    visit(&mlFlow::rou, "rou", 1);
    visit(&mlFlow::ux, "ux", 1);
    visit(&mlFlow::uy, "uy", 1);
    visit(&mlFlow::uz, "uz", 1);
    visit(&mlFlow::flag, "flag", 1);
    visit(&mlFlow::param, "param", 0);
    visit(&mlFlow::forcex, "forcex", 1);
    visit(&mlFlow::forcey, "forcey", 1);
    visit(&mlFlow::forcez, "forcez", 1);
    visit(&mlFlow::Sopt, "Sopt", 1);
    visit(&mlFlow::PML_type, "PML_type", 1);
    visit(&mlFlow::fEqBar, "fEqBar", populations);
    visit(&mlFlow::fEqTilde, "fEqTilde", populations);
    visit(&mlFlow::fEqTildeOld, "fEqTildeOld", populations);
    visit(&mlFlow::Q, "Q", populations);
    visit(&mlFlow::cNQ, "cNQ", populations);
    visit(&mlFlow::sigma, "sigma", 1);
}

}  // namespace drelt
