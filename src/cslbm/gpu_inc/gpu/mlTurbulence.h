// Local flow scalars that set the relaxation rates: velocity gradients, the eddy viscosity, and the
// fitted high-order relaxation parameter. Lattice units.
#pragma once

#include <cmath>

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "platform/launch.h"

namespace drelt {

// Three by three numbers of a node; of[a][b] of a gradient is the derivative of component a along b.
struct Tensor3 {
    float of[3][3];
};

namespace detail {

// Calls body(a, b) for the nine index pairs, as compile-time constants.
template <class Body>
DRELT_HOST_DEVICE void forEachPair(Body&& body) {
    forEachIndex<9>([&](auto i) DRELT_LAMBDA_INLINE {
        body(Constant<decltype(i)::value / 3>{}, Constant<decltype(i)::value % 3>{});
    });
}

// Sum of the squares of the nine entries.
DRELT_HOST_DEVICE float sumOfSquares(const Tensor3& t) {
    float sum = 0.0f;
    forEachPair([&](auto a, auto b) DRELT_LAMBDA_INLINE {
        const float entry = t.of[decltype(a)::value][decltype(b)::value];
        sum += entry * entry;
    });
    return sum;
}

// Symmetric part of a tensor less a third of its trace. The halves and thirds are formed in double
// precision and every partial sum is rounded to single.
DRELT_HOST_DEVICE Tensor3 symmetricDeviator(const Tensor3& t) {
    float third = static_cast<float>(t.of[0][0] / 3.0);
    third = static_cast<float>(third + t.of[1][1] / 3.0);
    third = static_cast<float>(third + t.of[2][2] / 3.0);
    Tensor3 out;
    forEachPair([&](auto a, auto b) DRELT_LAMBDA_INLINE {
        constexpr int i = decltype(a)::value;
        constexpr int j = decltype(b)::value;
        // half of a sum of two floats is exact: single precision gives the same bits as double
        const float symmetric = i == j ? t.of[i][j] : (t.of[i][j] + t.of[j][i]) * 0.5f;
        out.of[i][j] = i == j ? symmetric - third : symmetric;
    });
    return out;
}

// Halved difference of a field along x, y and z about a node. Neighbours are clamped to the domain,
// and the divisor stays 2 there: on a face the normal derivative is half the one-sided difference.
DRELT_HOST_DEVICE void clampedGradient(const float* u, const LaunchIndex& at, int nx, int ny,
                                       int nz, float (&gradient)[3]) {
    const std::int64_t plane = static_cast<std::int64_t>(nx) * ny;
    const std::int64_t down = at.y > 0 ? nx : 0;
    const std::int64_t up = at.y < ny - 1 ? nx : 0;
    const std::int64_t forward = at.z > 0 ? plane : 0;
    const std::int64_t back = at.z < nz - 1 ? plane : 0;
    // conditional loads, not clamped indices: they stay contiguous when x runs in a vector
    float left = u[at.n];
    float right = left;
    if (at.x > 0) left = u[at.n - 1];
    if (at.x < nx - 1) right = u[at.n + 1];
    gradient[0] = (right - left) * 0.5f;
    gradient[1] = (u[at.n + up] - u[at.n - down]) * 0.5f;
    gradient[2] = (u[at.n + back] - u[at.n - forward]) * 0.5f;
}

}  // namespace detail

// Gradient of the velocity (ux, uy, uz of the record, as the frame forcing left them) at a node.
DRELT_HOST_DEVICE Tensor3 velocityGradient(const mlFlow* flow, const LaunchIndex& at, int nx,
                                           int ny, int nz) {
    Tensor3 g;
    detail::clampedGradient(flow->ux, at, nx, ny, nz, g.of[0]);
    detail::clampedGradient(flow->uy, at, nx, ny, nz, g.of[1]);
    detail::clampedGradient(flow->uz, at, nx, ny, nz, g.of[2]);
    return g;
}

// Eddy viscosity of the wall-adapting local eddy-viscosity model (Nicoud, Ducros, Flow Turbul.
// Combust. 62 (1999) 183, eq. 13) with constant 0.325 and filter width 1, times the density and with
// the deviator of the strain rate in the denominator. Powers by square roots; 0 where the gradient
// vanishes.
DRELT_HOST_DEVICE float waleEddyViscosity(const Tensor3& g, float rho) {
    Tensor3 square;
    detail::forEachPair([&](auto a, auto b) DRELT_LAMBDA_INLINE {
        constexpr int i = decltype(a)::value;
        constexpr int j = decltype(b)::value;
        square.of[i][j] =
            g.of[i][0] * g.of[0][j] + g.of[i][1] * g.of[1][j] + g.of[i][2] * g.of[2][j];
    });
    const float a = detail::sumOfSquares(detail::symmetricDeviator(square));
    const float b = detail::sumOfSquares(detail::symmetricDeviator(g));
    const float rootA = sqrtf(a);
    const float a15 = a * rootA;
    const float a125 = a * sqrtf(rootA);
    const float b25 = b * b * sqrtf(b);
    return rho * 0.325f * 0.325f * a15 / (b25 + a125 + 1e-12f);
}

// Fitted high-order relaxation parameter: linear in the norm of the modelled momentum flux (ideal
// part plus Newtonian stress with viscosity nu), the density, and the size of the momentum. Not
// positive where the flow is fast.
DRELT_HOST_DEVICE float fittedRelaxation(const Tensor3& g, float rho, const float (&u)[3],
                                         float nu) {
    const float div = g.of[0][0] + g.of[1][1] + g.of[2][2];
    const float twoRhoNu = (rho + rho) * nu;
    const double pressure = rho / 3.0;
    const double bulk = twoRhoNu / 3.0 * div;
    Tensor3 flux;
    detail::forEachPair([&](auto a, auto b) DRELT_LAMBDA_INLINE {
        constexpr int i = decltype(a)::value;
        constexpr int j = decltype(b)::value;
        const float transport = rho * u[i] * u[j];
        if constexpr (i == j) {
            flux.of[i][j] = static_cast<float>(transport + pressure - twoRhoNu * g.of[i][j] + bulk);
        } else {
            // One double subtraction of floats, rounded to float, has the bits of the float one.
            flux.of[i][j] = transport - twoRhoNu * (g.of[i][j] + g.of[j][i]) * 0.5f;
        }
    });
    const float rho2 = rho * rho;
    const float norm = sqrtf(detail::sumOfSquares(flux));
    const float momentum = sqrtf(rho2 * u[0] * u[0] + rho2 * u[1] * u[1] + rho2 * u[2] * u[2]);
    return static_cast<float>(0.0006978712121180968 * norm + 0.0003473824792054466 * rho -
                              0.024553263256967 * momentum + 0.008547381698844);
}

// Size of the strain rate S, sqrt(2 S_ab S_ab); the sum in double precision, its root in single.
DRELT_HOST_DEVICE float strainRateMagnitude(const Tensor3& g) {
    double diagonal = 0.0;
    double off = 0.0;
    forEachIndex<3>([&](auto i) DRELT_LAMBDA_INLINE {
        constexpr int a = decltype(i)::value;
        constexpr int b = (a + 1) % 3;
        const double normal = g.of[a][a];
        const double shear = (g.of[a][b] + g.of[b][a]) * 0.5f;
        diagonal += normal * normal;
        off += shear * shear;
    });
    return sqrtf(static_cast<float>(2.0 * diagonal + 4.0 * off));
}

// Smagorinsky's eddy viscosity with constant 0.15 and filter width 1 (Mon. Weather Rev. 91 (1963)
// 99): a lift of the high-order rates where the strain is large.
DRELT_HOST_DEVICE double strainLift(const Tensor3& g) { return 0.0225 * strainRateMagnitude(g); }

// Relaxation rate of a viscosity-like parameter, in double precision, rounded once. Not clamped.
DRELT_HOST_DEVICE float relaxationRate(double parameter) {
    return static_cast<float>(1.0 / (3.0 * parameter + 0.5));
}

// Rates of a collision without a fit: the shear moments relax with a viscosity, the others with
// fixed parameters plus a lift. T is the precision of those sums.
template <class T>
DRELT_HOST_DEVICE MomentRates liftedRates(float viscosity, T lift, T high, T fifth, T sixth) {
    return {relaxationRate(viscosity), relaxationRate(lift + high), relaxationRate(lift + fifth),
            relaxationRate(lift + sixth)};
}

}  // namespace drelt
