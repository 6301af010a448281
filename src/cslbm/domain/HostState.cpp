#include "cslbm/domain/HostState.h"

#include <algorithm>

#include "cslbm/PML/PMLScheme.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/mlsolver/mlLattice.h"

namespace drelt {
namespace {

// The place of a node in the layer from the outer faces that it lies on.
PML_TYPE outerType(const MLFluidParam& param, int x, int y, int z) {
    int faces = 0;
    PML_TYPE type = PML_INTERIOR;
    const auto test = [&](bool on, PML_TYPE face) {
        if (!on) return;
        ++faces;
        type = face;
    };
    test(x == 0, PML_FACE_LEFT);
    test(x == param.samples_x - 1, PML_FACE_RIGHT);
    test(y == 0, PML_FACE_DOWN);
    test(y == param.samples_y - 1, PML_FACE_UP);
    test(z == 0, PML_FACE_FORWARD);
    test(z == param.samples_z - 1, PML_FACE_BACK);
    return faces > 1 ? PML_EDGE : type;
}

bool isCorner(const MLFluidParam& param, int x, int y, int z) {
    return (x == 0 || x == param.samples_x - 1) && (y == 0 || y == param.samples_y - 1) &&
           (z == 0 || z == param.samples_z - 1);
}

bool isZero(const Vector3<float>& v) { return v.x == 0.0f && v.y == 0.0f && v.z == 0.0f; }

// Sets f and fPost of a node.
void setUniform(mlFlow& flow, std::int64_t n, float rho, const Vector3<float>& velocity) {
    forEachDirection([&](auto d) {
        const std::int64_t at = decltype(d)::index * flow.count + n;
        flow.f[at] = flow.fPost[at] = uniformPopulation(d, rho, velocity);
    });
}

}  // namespace

bool keepsItsState(MLLATTICENODE_FLAG flag) {
    return flag == ML_NODE_NONE || flag == ML_NODE_SOLID;
}

LayerNode layerNode(const MLFluidParam& param, float sigma_max, int x, int y, int z) {
    const int w = param.pml_width;
    const int margin = std::min(
        {x, param.samples_x - 1 - x, y, param.samples_y - 1 - y, z, param.samples_z - 1 - z});
    LayerNode node{PML_NONE, 0.0f};
    if (margin < w) {
        node.sigma = layerDamping(static_cast<float>(w - margin), dampingScale(sigma_max, w));
        node.type = outerType(param, x, y, z);
    }
    if (isCorner(param, x, y, z)) node.type = PML_CORNER;
    return node;
}

void initialisePopulations(mlFlow& flow, const Vector3<float>& velocity) {
    const bool moves = !isZero(velocity);
    forEachNode(*flow.param, [&](std::int64_t n, int, int, int) {
        for (int i = 0; i < kDirections; ++i) {
            const std::int64_t at = i * flow.count + n;
            const float equilibrium = hostEquilibrium(i, 1, 0, 0, 0);
            flow.f[at] = flow.fPost[at] = flow.fEqBar[at] = equilibrium;
            flow.fEqTilde[at] = flow.fEqTildeOld[at] = 0;
        }
        if (moves) setUniform(flow, n, 1.0f, velocity);
    });
}

void resetPopulations(mlFlow& flow, const Vector3<float>& velocity) {
    forEachNode(*flow.param, [&](std::int64_t n, int, int, int) {
        if (keepsItsState(flow.flag[n])) return;
        for (int i = 0; i < kDirections; ++i) {
            const std::int64_t at = i * flow.count + n;
            flow.fEqBar[at] = w_cas1[i] * flow.rou[n].value;
            flow.fEqTilde[at] = flow.fEqTildeOld[at] = flow.Q[at] = flow.cNQ[at] = 0;
        }
        setUniform(flow, n, flow.rou[n].value, velocity);
    });
}

void uniformPopulations(mlFlow& flow, const Vector3<float>& velocity) {
    forEachNode(*flow.param, [&](std::int64_t n, int, int, int) {
        setUniform(flow, n, flow.rou[n].value, velocity);
    });
}

void setUniformMomentum(mlFlow& flow, const Vector3<float>& velocity) {
    if (isZero(velocity)) return;
    forEachNode(*flow.param, [&](std::int64_t n, int, int, int) {
        if (keepsItsState(flow.flag[n])) return;
        const float rho = flow.rou[n].value;
        flow.ux[n] = rho * velocity.x;
        flow.uy[n] = rho * velocity.y;
        flow.uz[n] = rho * velocity.z;
    });
}

}  // namespace drelt
