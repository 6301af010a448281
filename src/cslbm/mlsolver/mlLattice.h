// The D3Q27 velocity set: 0 rest, 1 to 6 axes, 7 to 18 edges, 19 to 26 corners of the cube.
#pragma once

#include <utility>

#include "platform/launch.h"

namespace drelt {

inline constexpr int kDirections = 27;

// Direction components, opposite directions and weights. Index them with compile-time constants in
// operators (forEachDirection), so that a device compiler folds them.
inline constexpr float ex_cas1[27] = {0,  1, -1, 0, 0, 0, 0,  1, -1, 1, -1, 1, -1, 1,
                                      -1, 0, 0,  0, 0, 1, -1, 1, -1, 1, -1, 1, -1};
inline constexpr float ey_cas1[27] = {0, 0, 0,  1, -1, 0, 0, 1,  1,  -1, -1, 0,  0, 0,
                                      0, 1, -1, 1, -1, 1, 1, -1, -1, 1,  1,  -1, -1};
inline constexpr float ez_cas1[27] = {0,  0, 0, 0,  0,  1, -1, 0, 0, 0,  0,  1,  1, -1,
                                      -1, 1, 1, -1, -1, 1, 1,  1, 1, -1, -1, -1, -1};
inline constexpr int index_inv_cas1[27] = {0,  2,  1,  4,  3,  6,  5,  10, 9,  8,  7,  14, 13, 12,
                                           11, 18, 17, 16, 15, 26, 25, 24, 23, 22, 21, 20, 19};
inline constexpr float w_cas1[27] = {
    0.2962963f,    0.074074075f,  0.074074075f,  0.074074075f,  0.074074075f,  0.074074075f,
    0.074074075f,  0.018518519f,  0.018518519f,  0.018518519f,  0.018518519f,  0.018518519f,
    0.018518519f,  0.018518519f,  0.018518519f,  0.018518519f,  0.018518519f,  0.018518519f,
    0.018518519f,  0.0046296297f, 0.0046296297f, 0.0046296297f, 0.0046296297f, 0.0046296297f,
    0.0046296297f, 0.0046296297f, 0.0046296297f};

// The D3Q19 set: the first 19 directions of the same table.
inline constexpr float ex[19] = {0, 1, -1, 0, 0, 0, 0, 1, -1, 1, -1, 1, -1, 1, -1, 0, 0, 0, 0};
inline constexpr float ey[19] = {0, 0, 0, 1, -1, 0, 0, 1, 1, -1, -1, 0, 0, 0, 0, 1, -1, 1, -1};
inline constexpr float ez[19] = {0, 0, 0, 0, 0, 1, -1, 0, 0, 0, 0, 1, 1, -1, -1, 1, 1, -1, -1};
inline constexpr int index_inv[19] = {0, 2,  1,  4,  3,  6,  5,  10, 9, 8,
                                      7, 14, 13, 12, 11, 18, 17, 16, 15};

// A direction as a compile-time constant.
template <int I>
struct Direction {
    static constexpr int index = I;
    static constexpr int x = static_cast<int>(ex_cas1[I]);
    static constexpr int y = static_cast<int>(ey_cas1[I]);
    static constexpr int z = static_cast<int>(ez_cas1[I]);
    static constexpr int opposite = index_inv_cas1[I];
    static constexpr float weight = w_cas1[I];
};

namespace detail {
template <class Body, int... I>
DRELT_HOST_DEVICE void unrollDirections(std::integer_sequence<int, I...>, Body&& body) {
    (body(Direction<I>{}), ...);
}
}  // namespace detail

// Calls body(Direction<i>{}) for i from 0 to 26, unrolled before the vectoriser runs. Mark the body
// DRELT_LAMBDA_INLINE, or it stays a call and nothing vectorises.
template <class Body>
DRELT_HOST_DEVICE void forEachDirection(Body&& body) {
    detail::unrollDirections(std::make_integer_sequence<int, kDirections>{}, body);
}

// Equilibrium of second order in the velocity, for a direction (cx, cy, cz) of the given weight, density
// rho and velocity (ux, uy, uz); lattice units. The dot product and the square are formed in single
// precision, the polynomial in double, rounded once.
DRELT_HOST_DEVICE float secondOrderEquilibrium(float cx, float cy, float cz, float weight,
                                               float rho, float ux, float uy, float uz) {
    const double t = cx * ux + cy * uy + cz * uz;
    const double s = 1.5f * (ux * ux + uy * uy + uz * uz);
    const double w = weight * rho;
    return static_cast<float>(((t * 3.0 + 1.0) + t * 4.5 * t - s) * w);
}

// The same for direction D.
template <class D>
DRELT_HOST_DEVICE float secondOrderEquilibrium(D, float rho, float ux, float uy, float uz) {
    return secondOrderEquilibrium(D::x, D::y, D::z, D::weight, rho, ux, uy, uz);
}

// The same for direction i on the host. It fills the initial state.
inline float hostEquilibrium(int i, float rho, float ux, float uy, float uz) {
    return secondOrderEquilibrium(ex_cas1[i], ey_cas1[i], ez_cas1[i], w_cas1[i], rho, ux, uy, uz);
}

}  // namespace drelt
