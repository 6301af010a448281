// What sets the relaxation rates of a node: the velocity gradient, the eddy viscosity and the fitted
// high-order parameter. Lattice units.
//
// Eddy viscosity and fit each have two forms with the same constants. The operators mix single and double
// precision in a fixed order, for one node. The production schedule computes in single precision for one
// node or a pack: it keeps the doubled gradient, fuses multiply-adds, and needs one division for both
// rates. One template would change the bits of one of them.
#pragma once

#include <cmath>

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "platform/arithmetic.h"
#include "platform/launch.h"
#include "platform/vector3.h"

namespace drelt {

// Model constant of the eddy viscosity; the filter width is 1.
inline constexpr float kWaleConstant = 0.325f;
// Keeps the quotient of the eddy viscosity finite where the gradient vanishes.
inline constexpr float kWaleFloor = 1e-12f;
// The fitted parameter is kFitFlux |flux| + kFitDensity rho + kFitMomentum |rho u| + kFitConstant.
inline constexpr double kFitFlux = 0.0006978712121180968;
inline constexpr double kFitDensity = 0.0003473824792054466;
inline constexpr double kFitMomentum = -0.024553263256967;
inline constexpr double kFitConstant = 0.008547381698844;

// A 3 x 3 tensor of a node. In a velocity gradient, of[a][b] is the derivative of component a along b.
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

// The sum of the squares of the nine entries.
DRELT_HOST_DEVICE float sumOfSquares(const Tensor3& t) {
    float sum = 0.0f;
    forEachPair([&](auto a, auto b) DRELT_LAMBDA_INLINE {
        const float entry = t.of[decltype(a)::value][decltype(b)::value];
        sum += entry * entry;
    });
    return sum;
}

// The symmetric part of a tensor minus a third of its trace. Thirds are formed in double precision and
// every partial sum is rounded to single.
DRELT_HOST_DEVICE Tensor3 symmetricDeviator(const Tensor3& t) {
    float third = static_cast<float>(t.of[0][0] / 3.0);
    third = static_cast<float>(third + t.of[1][1] / 3.0);
    third = static_cast<float>(third + t.of[2][2] / 3.0);
    Tensor3 out;
    forEachPair([&](auto a, auto b) DRELT_LAMBDA_INLINE {
        constexpr int i = decltype(a)::value;
        constexpr int j = decltype(b)::value;
        // halving is exact, so single precision gives the same bits as double here
        const float symmetric = i == j ? t.of[i][j] : (t.of[i][j] + t.of[j][i]) * 0.5f;
        out.of[i][j] = i == j ? symmetric - third : symmetric;
    });
    return out;
}

// Half the difference of a field between the two neighbours of a node, along x, y and z. Neighbours are
// clamped to the domain and the divisor stays 2, so on a face the normal derivative is half the one-sided
// difference.
DRELT_HOST_DEVICE void clampedGradient(const float* u, const LaunchIndex& at, int nx, int ny,
                                       int nz, float (&gradient)[3]) {
    const std::int64_t plane = static_cast<std::int64_t>(nx) * ny;
    const std::int64_t down = at.y > 0 ? nx : 0;
    const std::int64_t up = at.y < ny - 1 ? nx : 0;
    const std::int64_t forward = at.z > 0 ? plane : 0;
    const std::int64_t back = at.z < nz - 1 ? plane : 0;
    // With conditional loads instead of clamped indices, a vector of nodes loads contiguous memory.
    float left = u[at.n];
    float right = left;
    if (at.x > 0) left = u[at.n - 1];
    if (at.x < nx - 1) right = u[at.n + 1];
    gradient[0] = (right - left) * 0.5f;
    gradient[1] = (u[at.n + up] - u[at.n - down]) * 0.5f;
    gradient[2] = (u[at.n + back] - u[at.n - forward]) * 0.5f;
}

}  // namespace detail

// The velocity gradient at a node. ux, uy, uz of the record hold velocities.
DRELT_HOST_DEVICE Tensor3 velocityGradient(const mlFlow* flow, const LaunchIndex& at, int nx,
                                           int ny, int nz) {
    Tensor3 g;
    detail::clampedGradient(flow->ux, at, nx, ny, nz, g.of[0]);
    detail::clampedGradient(flow->uy, at, nx, ny, nz, g.of[1]);
    detail::clampedGradient(flow->uz, at, nx, ny, nz, g.of[2]);
    return g;
}

// Eddy viscosity of the wall-adapting local eddy-viscosity model (Nicoud, Ducros, Flow Turbul. Combust. 62
// (1999) 183, eq. 13), times the density, and with the deviator of the strain rate in the denominator:
//
//     nu_t = rho C^2 A^1.5 / (B^2.5 + A^1.25 + 1e-12),
//
// where A is the sum of squares of the symmetric deviator of the squared gradient, and B that of the gradient.
// Powers are formed by square roots. The result is 0 where the gradient is 0.
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
    return rho * kWaleConstant * kWaleConstant * a15 / (b25 + a125 + kWaleFloor);
}

// The fitted high-order relaxation parameter, linear in the norm of the modelled momentum flux (ideal part
// plus Newtonian stress with viscosity nu), the density and the size of the momentum. It is negative in
// fast flow.
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
            // A double subtraction of two floats, rounded to float, gives the bits of the float one.
            flux.of[i][j] = transport - twoRhoNu * (g.of[i][j] + g.of[j][i]) * 0.5f;
        }
    });
    const float rho2 = rho * rho;
    const float norm = sqrtf(detail::sumOfSquares(flux));
    const float momentum = sqrtf(rho2 * u[0] * u[0] + rho2 * u[1] * u[1] + rho2 * u[2] * u[2]);
    return static_cast<float>(kFitFlux * norm + kFitDensity * rho + kFitMomentum * momentum +
                              kFitConstant);
}

// The magnitude of the strain rate S, sqrt(2 S_ab S_ab). The sum is in double precision, its root in
// single.
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

// Smagorinsky's eddy viscosity with constant 0.15 and filter width 1 (Mon. Weather Rev. 91 (1963) 99). It
// raises the parameters of the high-order rates where the strain is large.
DRELT_HOST_DEVICE double strainLift(const Tensor3& g) { return 0.0225 * strainRateMagnitude(g); }

// The relaxation rate for a viscosity-like parameter, in double precision, rounded once. Not clamped.
DRELT_HOST_DEVICE float relaxationRate(double parameter) {
    return static_cast<float>(1.0 / (3.0 * parameter + 0.5));
}

// The rates of a collision without a fit: the shear moments relax with a viscosity, the others with fixed
// parameters plus a lift. T is the precision in which a lift is added.
template <class T>
DRELT_HOST_DEVICE MomentRates liftedRates(float viscosity, T lift, T high, T fifth, T sixth) {
    return {relaxationRate(viscosity), relaxationRate(lift + high), relaxationRate(lift + fifth),
            relaxationRate(lift + sixth)};
}

// Production: differences of the velocity over two node spacings, which is twice the gradient. ab is the
// difference of component a along b.
template <class V>
struct Differences {
    V xx, xy, xz, yx, yy, yz, zx, zy, zz;
};

// Production: the relaxation rates of a node, and the high-order parameter.
template <class V>
struct Rates {
    V shear, high, sopt;
};

// Production's form of fittedRelaxation.
template <class V>
DRELT_HOST_DEVICE V fittedOf(const Differences<V>& h, const V& rho, const Vector3<V>& u, float nu) {
    const V rn = rho * nu;
    const V halfRn = 0.5f * rn;
    const V rx = rho * u.x;
    const V ry = rho * u.y;
    const V rz = rho * u.z;
    const V common = mulAdd(rn, h.xx + h.yy + h.zz, rho) * (1.0f / 3.0f);
    const V xx = negMulAdd(rn, h.xx, mulAdd(rx, u.x, common));
    const V yy = negMulAdd(rn, h.yy, mulAdd(ry, u.y, common));
    const V zz = negMulAdd(rn, h.zz, mulAdd(rz, u.z, common));
    const V xy = negMulAdd(halfRn, h.xy + h.yx, rx * u.y);
    const V xz = negMulAdd(halfRn, h.xz + h.zx, rx * u.z);
    const V yz = negMulAdd(halfRn, h.yz + h.zy, ry * u.z);
    const V mixed = mulAdd(xy, xy, mulAdd(xz, xz, yz * yz));
    const V norm = squareRoot(mulAdd(xx, xx, mulAdd(yy, yy, mulAdd(zz, zz, mixed + mixed))));
    const V momentum = squareRoot(mulAdd(rx, rx, mulAdd(ry, ry, rz * rz)));
    constexpr auto flux = static_cast<float>(kFitFlux);
    constexpr auto density = static_cast<float>(kFitDensity);
    constexpr auto slowing = static_cast<float>(-kFitMomentum);
    const V fast = negMulAdd(slowing, momentum, V{} + static_cast<float>(kFitConstant));
    return mulAdd(flux, norm, mulAdd(density, rho, fast));
}

// Production's form of waleEddyViscosity and relaxationRate: both rates from the flow around a node. The
// powers are written for the doubled gradient. The eddy viscosity stays a fraction, so that both rates share
// one division. `kept` is the high-order parameter of the step before.
template <class V>
DRELT_HOST_DEVICE Rates<V> ratesOf(const Differences<V>& h, const V& rho, const Vector3<V>& u,
                                   const V& kept, float nu) {
    const V fit = fittedOf(h, rho, u, nu);
    // A fit that is not a number fails the comparison, so the old value stays.
    const V sopt = fit > 0.0f ? fit : kept;

    const V third = (h.xx + h.yy + h.zz) * (1.0f / 3.0f);
    const V sxx = h.xx - third;
    const V syy = h.yy - third;
    const V szz = h.zz - third;
    const V sxy = h.xy + h.yx;
    const V sxz = h.xz + h.zx;
    const V syz = h.yz + h.zy;
    const V shearing = mulAdd(sxy, sxy, mulAdd(sxz, sxz, syz * syz));
    const V b = mulAdd(sxx, sxx, mulAdd(syy, syy, mulAdd(szz, szz, 0.5f * shearing)));

    const V pxy = h.xy * h.yx;
    const V pxz = h.xz * h.zx;
    const V pyz = h.yz * h.zy;
    const V qxx = mulAdd(h.xx, h.xx, pxy + pxz);
    const V qyy = mulAdd(h.yy, h.yy, pxy + pyz);
    const V qzz = mulAdd(h.zz, h.zz, pxz + pyz);
    const V qthird = (qxx + qyy + qzz) * (1.0f / 3.0f);
    // twice the symmetric part of the squared gradient: G_ab + G_ba
    const V qxy = mulAdd(h.xx + h.yy, sxy, mulAdd(h.xz, h.zy, h.yz * h.zx));
    const V qxz = mulAdd(h.xx + h.zz, sxz, mulAdd(h.xy, h.yz, h.zy * h.yx));
    const V qyz = mulAdd(h.yy + h.zz, syz, mulAdd(h.yx, h.xz, h.zx * h.xy));
    const V wxx = qxx - qthird;
    const V wyy = qyy - qthird;
    const V wzz = qzz - qthird;
    const V turning = mulAdd(qxy, qxy, mulAdd(qxz, qxz, qyz * qyz));
    const V a = mulAdd(wxx, wxx, mulAdd(wyy, wyy, mulAdd(wzz, wzz, 0.5f * turning)));

    // With a = 16 A and b = 4 B: A^1.5 / (B^2.5 + A^1.25 + 1e-12) = (a^1.5 / 2) / under
    const V rootA = squareRoot(a);
    const V under =
        mulAdd(b * b, squareRoot(b), mulAdd(a, squareRoot(rootA), V{} + 32.0f * kWaleFloor));
    const V over = (a * rootA) * rho;
    const V shearUnder =
        mulAdd(3.0f * 0.5f * kWaleConstant * kWaleConstant, over, (3.0f * nu + 0.5f) * under);
    const V highUnder = mulAdd(3.0f, sopt, V{} + 0.5f);
    const V inverse = 1.0f / (shearUnder * highUnder);
    return {under * highUnder * inverse, shearUnder * inverse, sopt};
}

}  // namespace drelt
