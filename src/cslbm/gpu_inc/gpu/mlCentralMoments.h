// Central moments of a node's populations and the transform back. All collision operators use them. Lattice
// units, single precision unless a comment says otherwise.
//
// Two sets of 27 numbers describe the same state relative to the velocity u, with c = e - u:
//   plain moments  kappa_lmn = sum of f_i cx^l cy^m cz^n, l, m, n = 0..2, at plainIndex(l, m, n);
//   table moments  k0 .. k26, linear combinations of them that each relax with one rate:
//     0 1 2 3       1, cx, cy, cz
//     4 5 6         cx cy, cx cz, cy cz
//     7 8 9         cx^2 - cy^2, cx^2 - cz^2, cx^2 + cy^2 + cz^2
//     10 11 12      cx cy^2 + cx cz^2, cx^2 cy + cy cz^2, cx^2 cz + cy^2 cz
//     13 14 15      the same with a minus
//     16            cx cy cz
//     17 18 19      cx^2 cy^2 + cx^2 cz^2 + cy^2 cz^2, the same with - cy^2 cz^2, cx^2 cy^2 - cx^2 cz^2
//     20 21 22      cx^2 cy cz, cx cy^2 cz, cx cy cz^2
//     23 24 25 26   cx cy^2 cz^2, cx^2 cy cz^2, cx^2 cy^2 cz, cx^2 cy^2 cz^2
//
// The velocity set is a product of three one-dimensional sets, so the transform and its inverse run axis by
// axis over lines of three values (cascaded collision: Geier, Greiner, Korvink, Eur. Phys. J. Spec. Top. 171
// (2009) 55).
#pragma once

#include <utility>

#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

inline constexpr int kMoments = 27;
// 1/sqrt(3), the lattice speed of sound, in the rounding that the force source uses.
inline constexpr float kSoundSpeed = 0.57735026f;

// A number as a compile-time constant. Loops over such constants are unrolled before the vectoriser runs.
template <int I>
struct Constant {
    static constexpr int value = I;
};

namespace detail {
template <class Body, int... I>
DRELT_HOST_DEVICE void unrollIndices(std::integer_sequence<int, I...>, Body&& body) {
    (body(Constant<I>{}), ...);
}
}  // namespace detail

// Calls body(Constant<i>{}) for i from 0 to N-1. Mark the body DRELT_LAMBDA_INLINE.
template <int N, class Body>
DRELT_HOST_DEVICE void forEachIndex(Body&& body) {
    detail::unrollIndices(std::make_integer_sequence<int, N>{}, body);
}

// The index of kappa_lmn in an array of plain moments.
constexpr int plainIndex(int l, int m, int n) { return l + 3 * (m + 3 * n); }

// The index of direction D when populations are ordered like plain moments: 0, 1, 2 along an axis mean the
// components 0, +1, -1.
template <class D>
constexpr int axisOrder() {
    constexpr int x = D::x == 0 ? 0 : (D::x == 1 ? 1 : 2);
    constexpr int y = D::y == 0 ? 0 : (D::y == 1 ? 1 : 2);
    constexpr int z = D::z == 0 ? 0 : (D::z == 1 ? 1 : 2);
    return plainIndex(x, y, z);
}

namespace detail {

// Turns the populations of a line (rest, plus, minus) into its central moments of order 0, 1, 2 about u.
DRELT_HOST_DEVICE void lineToMoments(float& rest, float& plus, float& minus, float u) {
    const float sum = plus + minus;
    const float difference = plus - minus;
    const float order0 = sum + rest;
    const float order1 = difference - u * order0;
    const float order2 = sum - u * (difference + order1);
    rest = order0;
    plus = order1;
    minus = order2;
}

// The inverse: shifts to the moments m0, m1, m2 about the origin, then forms the populations m0 - m2 (rest),
// (m2 + m1)/2 (plus) and (m2 - m1)/2 (minus).
DRELT_HOST_DEVICE void lineToPopulations(float& order0, float& order1, float& order2, float u) {
    const float raw1 = order1 + u * order0;
    const float raw2 = order2 + u * (order1 + raw1);
    const float half2 = 0.5f * raw2;
    const float half1 = 0.5f * raw1;
    order0 = order0 - raw2;
    order1 = half2 + half1;
    order2 = half2 - half1;
}

// Apply a line transform to the nine lines along one axis.
template <class Line>
DRELT_HOST_DEVICE void alongX(float (&v)[kMoments], Line&& line) {
    forEachIndex<9>([&](auto i) DRELT_LAMBDA_INLINE {
        constexpr int start = 3 * decltype(i)::value;
        line(v[start], v[start + 1], v[start + 2]);
    });
}
template <class Line>
DRELT_HOST_DEVICE void alongY(float (&v)[kMoments], Line&& line) {
    forEachIndex<9>([&](auto i) DRELT_LAMBDA_INLINE {
        constexpr int start = decltype(i)::value % 3 + 9 * (decltype(i)::value / 3);
        line(v[start], v[start + 3], v[start + 6]);
    });
}
template <class Line>
DRELT_HOST_DEVICE void alongZ(float (&v)[kMoments], Line&& line) {
    forEachIndex<9>([&](auto i) DRELT_LAMBDA_INLINE {
        constexpr int start = decltype(i)::value;
        line(v[start], v[start + 9], v[start + 18]);
    });
}

}  // namespace detail

// Forms the plain central moments about (ux, uy, uz) of populations in direction order.
DRELT_HOST_DEVICE void plainMomentsOf(const float (&f)[kDirections], float ux, float uy, float uz,
                                      float (&kappa)[kMoments]) {
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        kappa[axisOrder<D>()] = f[D::index];
    });
    detail::alongX(kappa, [&](float& a, float& b, float& c)
                              DRELT_LAMBDA_INLINE { detail::lineToMoments(a, b, c, ux); });
    detail::alongY(kappa, [&](float& a, float& b, float& c)
                              DRELT_LAMBDA_INLINE { detail::lineToMoments(a, b, c, uy); });
    detail::alongZ(kappa, [&](float& a, float& b, float& c)
                              DRELT_LAMBDA_INLINE { detail::lineToMoments(a, b, c, uz); });
}

// Forms the populations, in direction order, that have the given plain central moments about (ux, uy, uz).
// Overwrites the moments.
DRELT_HOST_DEVICE void populationsOf(float (&kappa)[kMoments], float ux, float uy, float uz,
                                     float (&f)[kDirections]) {
    detail::alongZ(kappa, [&](float& a, float& b, float& c)
                              DRELT_LAMBDA_INLINE { detail::lineToPopulations(a, b, c, uz); });
    detail::alongY(kappa, [&](float& a, float& b, float& c)
                              DRELT_LAMBDA_INLINE { detail::lineToPopulations(a, b, c, uy); });
    detail::alongX(kappa, [&](float& a, float& b, float& c)
                              DRELT_LAMBDA_INLINE { detail::lineToPopulations(a, b, c, ux); });
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        f[D::index] = kappa[axisOrder<D>()];
    });
}

// Forms table moments from plain ones.
DRELT_HOST_DEVICE void packMoments(const float (&p)[kMoments], float (&k)[kMoments]) {
    const auto at = [&](int l, int m, int n) DRELT_LAMBDA_INLINE { return p[plainIndex(l, m, n)]; };
    k[0] = at(0, 0, 0);
    k[1] = at(1, 0, 0);
    k[2] = at(0, 1, 0);
    k[3] = at(0, 0, 1);
    k[4] = at(1, 1, 0);
    k[5] = at(1, 0, 1);
    k[6] = at(0, 1, 1);
    k[7] = at(2, 0, 0) - at(0, 2, 0);
    k[8] = at(2, 0, 0) - at(0, 0, 2);
    k[9] = at(2, 0, 0) + at(0, 2, 0) + at(0, 0, 2);
    k[10] = at(1, 2, 0) + at(1, 0, 2);
    k[11] = at(2, 1, 0) + at(0, 1, 2);
    k[12] = at(2, 0, 1) + at(0, 2, 1);
    k[13] = at(1, 2, 0) - at(1, 0, 2);
    k[14] = at(2, 1, 0) - at(0, 1, 2);
    k[15] = at(2, 0, 1) - at(0, 2, 1);
    k[16] = at(1, 1, 1);
    k[17] = at(2, 2, 0) + at(2, 0, 2) + at(0, 2, 2);
    k[18] = at(2, 2, 0) + at(2, 0, 2) - at(0, 2, 2);
    k[19] = at(2, 2, 0) - at(2, 0, 2);
    k[20] = at(2, 1, 1);
    k[21] = at(1, 2, 1);
    k[22] = at(1, 1, 2);
    k[23] = at(1, 2, 2);
    k[24] = at(2, 1, 2);
    k[25] = at(2, 2, 1);
    k[26] = at(2, 2, 2);
}

// Forms plain moments from table ones.
DRELT_HOST_DEVICE void unpackMoments(const float (&k)[kMoments], float (&p)[kMoments]) {
    const auto at = [&](int l, int m, int n)
                        DRELT_LAMBDA_INLINE -> float& { return p[plainIndex(l, m, n)]; };
    constexpr float third = 1.0f / 3.0f;
    const float fourth = 0.25f * (k[17] + k[18]);
    at(0, 0, 0) = k[0];
    at(1, 0, 0) = k[1];
    at(0, 1, 0) = k[2];
    at(0, 0, 1) = k[3];
    at(1, 1, 0) = k[4];
    at(1, 0, 1) = k[5];
    at(0, 1, 1) = k[6];
    at(2, 0, 0) = (k[7] + k[8] + k[9]) * third;
    at(0, 2, 0) = (k[9] - 2.0f * k[7] + k[8]) * third;
    at(0, 0, 2) = (k[9] + k[7] - 2.0f * k[8]) * third;
    at(1, 2, 0) = (k[10] + k[13]) * 0.5f;
    at(1, 0, 2) = (k[10] - k[13]) * 0.5f;
    at(2, 1, 0) = (k[11] + k[14]) * 0.5f;
    at(0, 1, 2) = (k[11] - k[14]) * 0.5f;
    at(2, 0, 1) = (k[12] + k[15]) * 0.5f;
    at(0, 2, 1) = (k[12] - k[15]) * 0.5f;
    at(1, 1, 1) = k[16];
    at(0, 2, 2) = (k[17] - k[18]) * 0.5f;
    at(2, 2, 0) = fourth + k[19] * 0.5f;
    at(2, 0, 2) = fourth - k[19] * 0.5f;
    at(2, 1, 1) = k[20];
    at(1, 2, 1) = k[21];
    at(1, 1, 2) = k[22];
    at(1, 2, 2) = k[23];
    at(2, 1, 2) = k[24];
    at(2, 2, 1) = k[25];
    at(2, 2, 2) = k[26];
}

// The relaxation rates of k4..k8 (shear), k9..k22 (high), k23..k25 (fifth) and k26 (sixth).
struct MomentRates {
    float shear, high, fifth, sixth;

    template <int J>
    DRELT_HOST_DEVICE float of(Constant<J>) const {
        return J < 9 ? shear : (J < 23 ? high : (J < 26 ? fifth : sixth));
    }
};

// The central moments of a Maxwellian in the co-moving frame: rho, rho/3, rho/9 and rho/27 for the trace and
// the even moments, 0 for the others.
struct ConstantEquilibrium {
    float rho;

    static constexpr bool has(int j) { return j == 9 || j == 17 || j == 18 || j == 26; }
    template <int J>
    DRELT_HOST_DEVICE float of(Constant<J>) const {
        return J == 9 ? rho : (J == 17 ? rho / 3.0f : (J == 18 ? rho / 9.0f : rho / 27.0f));
    }
};

// The source of a force density in central moments: 2 F cs^2 in the third order, F cs^4 in the fifth. The
// first order is the force itself; setConserved sets it.
struct CentralForceSource {
    float x, y, z;

    static constexpr bool has(int j) { return (j >= 10 && j <= 12) || (j >= 23 && j <= 25); }
    template <int J>
    DRELT_HOST_DEVICE float of(Constant<J>) const {
        const float component = J % 13 == 10 ? x : (J % 13 == 11 ? y : z);
        constexpr float c = kSoundSpeed;
        return J < 13 ? (component + component) * c * c : component * c * c * c * c;
    }
};

// The force does not enter as a source of central moments.
struct NoMomentSource {
    static constexpr float x = 0.0f, y = 0.0f, z = 0.0f;

    static constexpr bool has(int) { return false; }
    template <int J>
    DRELT_HOST_DEVICE float of(Constant<J>) const {
        return 0.0f;
    }
};

// Relaxes k4 to k26: k* = (1 - s) k + s eq + (1 - s/2) S. Moments with a source are combined in double
// precision. k0 to k3 keep their values.
template <class Equilibrium, class Source>
DRELT_HOST_DEVICE void relaxMoments(float (&k)[kMoments], const MomentRates& rates,
                                    const Equilibrium& equilibrium, const Source& source) {
    forEachIndex<kMoments - 4>([&](auto i) DRELT_LAMBDA_INLINE {
        constexpr int j = decltype(i)::value + 4;
        const float s = rates.of(Constant<j>{});
        float relaxed = (1.0f - s) * k[j];
        if constexpr (Equilibrium::has(j)) relaxed += s * equilibrium.of(Constant<j>{});
        if constexpr (Source::has(j)) {
            relaxed = static_cast<float>(relaxed + (1.0 - s * 0.5) * source.of(Constant<j>{}));
        }
        k[j] = relaxed;
    });
}

}  // namespace drelt
