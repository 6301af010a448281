// The fields of a running solver, read from its device, under any schedule.
#pragma once

#include <vector>

#include "cslbm/mlsolver/mlSinglePhaseSolverNew.h"
#include "platform/check.h"
#include "supplement/IBBoundaryMemMgr.h"
#include "support/device.h"

namespace drelt::test {

// One entry per node; ux, uy, uz are raw momentum between steps.
struct Fields {
    std::vector<float> rou, ux, uy, uz, Sopt;
};

inline Fields fieldsOf(const mlSinglePhaseSolverNew& solver, int domain = 0) {
    const std::int64_t count = solver.lbmvec[domain]->count;
    Fields out;
    for (auto* field : {&out.rou, &out.ux, &out.uy, &out.uz, &out.Sopt}) field->resize(count);
    mlFlow into{};
    into.count = count;
    into.rou = reinterpret_cast<mlDensity<float>*>(out.rou.data());
    into.ux = out.ux.data();
    into.uy = out.uy.data();
    into.uz = out.uz.data();
    into.Sopt = out.Sopt.data();
    solver.domain(domain).materialise(into);
    return out;
}

// Force densities of a boundary's samples, read from its device: x of all samples, then y, then z.
inline std::vector<double> sampleForces(const IBBoundaryMemMgr& boundary) {
    std::vector<double> all;
    for (const double* const axis :
         {boundary.forcex_dev, boundary.forcey_dev, boundary.forcez_dev}) {
        const auto values = fetched(axis, static_cast<std::size_t>(boundary.mllaboundary->count));
        all.insert(all.end(), values.begin(), values.end());
    }
    return all;
}

}  // namespace drelt::test
