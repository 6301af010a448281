// Collision of the fused step for a value type V: the arithmetic of mlCollideAddForceHighorderFiiting
// in a short form. Moments of third and higher order and the trace share the rate s_high, and
// equilibrium and force source are products of one-dimensional factors, so that
//
//   f* = (1 - s_high) f + s_high E(rho, u) + (1 - s_high / 2) S(F, u)
//        + (s_high - s_shear) T^-1[deviator of the second central moments]
//
// needs no forward transform beyond the second moments. E, S and the deviator go back to populations
// together: the x step of the back transform is written out for each ex, y and z follow line by line.
//
// For a host pack and for float alike; nothing here knows where a population lives. Sources for float
// define DRELT_FUSED_FLOAT.
#pragma once

#if defined(DRELT_FUSED_FLOAT)
#include "cslbm/fused/FusedFloat.h"
#else
#include "cslbm/fused/Pack.h"
#endif

namespace drelt {
namespace DRELT_FUSED_ISA {

// Direction (X, Y, Z) as a type; code counts x fastest from (-1, -1, -1), so 26 - code is the opposite
// and codes above 13 are the lexicographically positive directions.
template <int X, int Y, int Z>
struct Toward {
    static constexpr int x = X, y = Y, z = Z;
    static constexpr int code = (X + 1) + 3 * (Y + 1) + 9 * (Z + 1);
    static constexpr int opposite = 26 - code;
    static constexpr int squaredLength = X * X + Y * Y + Z * Z;
};

template <class V>
struct Triple {
    V x, y, z;
};

// Differences of the velocity over two node spacings, so twice the gradient: ab of component a along b.
template <class V>
struct Differences {
    V xx, xy, xz, yx, yy, yz, zx, zy, zz;
};

// Relaxation rates of a node, and the parameter behind the high one.
template <class V>
struct Rates {
    V shear, high, sopt;
};

// Fitted high-order relaxation parameter; see fittedRelaxation.
template <class V>
DRELT_FUSED_INLINE V fitted(const Differences<V>& h, const V& rho, const Triple<V>& u, float nu) {
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
    const V fast = negMulAdd(0.024553263256967f, momentum, V{} + 0.008547381698844f);
    return mulAdd(0.0006978712121180968f, norm, mulAdd(0.0003473824792054466f, rho, fast));
}

// Rates from the flow around a node. The eddy viscosity is waleEddyViscosity with its powers written
// for the doubled gradient, kept as a fraction so that both rates share one division.
template <class V>
DRELT_FUSED_INLINE Rates<V> ratesOf(const Differences<V>& h, const V& rho, const Triple<V>& u,
                                    const V& kept, float nu) {
    const V fit = fitted(h, rho, u, nu);
    // a fit that is not a number fails the comparison and keeps the old value
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
    // twice the symmetric parts: G_ab + G_ba
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
    const V under = mulAdd(b * b, squareRoot(b), mulAdd(a, squareRoot(rootA), V{} + 3.2e-11f));
    const V over = (a * rootA) * rho;
    const V shearUnder = mulAdd(3.0f * 0.5f * 0.325f * 0.325f, over, (3.0f * nu + 0.5f) * under);
    const V highUnder = mulAdd(3.0f, sopt, V{} + 0.5f);
    const V inverse = 1.0f / (shearUnder * highUnder);
    return {under * highUnder * inverse, shearUnder * inverse, sopt};
}

// What relaxes a node: density, velocity shifted by half the force, the force whose source enters,
// the rates, and the share of the equilibrium (s_high; less in an absorbing layer).
template <class V>
struct Relaxation {
    V rho;
    Triple<V> u, force;
    V shear, high, equilibrium;
};

// Coefficients of the back transform, central moments of what is added to (1 - s_high) f. Factors
// 1/2 of the back steps along y and z are folded in.
template <class V>
struct Additions {
    V mass;                           // equilibrium's density
    V sx, sy2, sz2, sy12, sz12;       // force source
    V dxx, dyy2, dzz2;                // deviator
    V dxy2, dxz2, dyz4;               //
    V mass0, first1, first2, first3;  // what f itself lacks of the conserved moments (Whole only)
};

template <class V, class Populations>
DRELT_FUSED_INLINE V massOf(const Populations& f) {
    // small populations first, as in mlCalOneOrderMomentOptKernel
    const V corners = ((f(Toward<1, 1, 1>{}) + f(Toward<-1, -1, -1>{})) +
                       (f(Toward<-1, -1, 1>{}) + f(Toward<1, 1, -1>{}))) +
                      ((f(Toward<1, -1, 1>{}) + f(Toward<-1, 1, -1>{})) +
                       (f(Toward<-1, 1, 1>{}) + f(Toward<1, -1, -1>{})));
    const V xy = (f(Toward<1, 1, 0>{}) + f(Toward<-1, -1, 0>{})) +
                 (f(Toward<-1, 1, 0>{}) + f(Toward<1, -1, 0>{}));
    const V xz = (f(Toward<1, 0, 1>{}) + f(Toward<-1, 0, -1>{})) +
                 (f(Toward<-1, 0, 1>{}) + f(Toward<1, 0, -1>{}));
    const V yz = (f(Toward<0, 1, 1>{}) + f(Toward<0, -1, -1>{})) +
                 (f(Toward<0, -1, 1>{}) + f(Toward<0, 1, -1>{}));
    const V axes = ((f(Toward<1, 0, 0>{}) + f(Toward<-1, 0, 0>{})) +
                    (f(Toward<0, 1, 0>{}) + f(Toward<0, -1, 0>{}))) +
                   (f(Toward<0, 0, 1>{}) + f(Toward<0, 0, -1>{}));
    return ((corners + ((xy + xz) + yz)) + axes) + f(Toward<0, 0, 0>{});
}

template <class V, class Populations>
DRELT_FUSED_INLINE Triple<V> momentumOf(const Populations& f) {
    const V c0 = f(Toward<1, 1, 1>{}) - f(Toward<-1, -1, -1>{});
    const V c1 = f(Toward<1, 1, -1>{}) - f(Toward<-1, -1, 1>{});
    const V c2 = f(Toward<1, -1, 1>{}) - f(Toward<-1, 1, -1>{});
    const V c3 = f(Toward<-1, 1, 1>{}) - f(Toward<1, -1, -1>{});
    const V xyp = f(Toward<1, 1, 0>{}) - f(Toward<-1, -1, 0>{});
    const V xym = f(Toward<1, -1, 0>{}) - f(Toward<-1, 1, 0>{});
    const V xzp = f(Toward<1, 0, 1>{}) - f(Toward<-1, 0, -1>{});
    const V xzm = f(Toward<1, 0, -1>{}) - f(Toward<-1, 0, 1>{});
    const V yzp = f(Toward<0, 1, 1>{}) - f(Toward<0, -1, -1>{});
    const V yzm = f(Toward<0, 1, -1>{}) - f(Toward<0, -1, 1>{});
    const V x = f(Toward<1, 0, 0>{}) - f(Toward<-1, 0, 0>{});
    const V y = f(Toward<0, 1, 0>{}) - f(Toward<0, -1, 0>{});
    const V z = f(Toward<0, 0, 1>{}) - f(Toward<0, 0, -1>{});
    const V c01 = c0 + c1;
    const V c23 = c2 - c3;
    return {((xyp + xym) + (xzp + xzm)) + (c01 + c23) + x,
            ((xyp - xym) + (yzp + yzm)) + (c01 - c23) + y,
            ((xzp - xzm) + (yzp - yzm)) + ((c0 - c1) + (c2 + c3)) + z};
}

// Second moments of the populations, in the combinations that the deviator needs.
template <class V>
struct SecondMoments {
    V xy, xz, yz, xxLessYy, xxLessZz;
};

// Reads all populations; with Whole also their sum and first moments.
template <bool Whole, class V, class Populations>
DRELT_FUSED_INLINE SecondMoments<V> secondMoments(const Populations& f, V& mass, Triple<V>& first) {
    const V xyp = f(Toward<1, 1, 0>{}) + f(Toward<-1, -1, 0>{});
    const V xym = f(Toward<-1, 1, 0>{}) + f(Toward<1, -1, 0>{});
    const V xzp = f(Toward<1, 0, 1>{}) + f(Toward<-1, 0, -1>{});
    const V xzm = f(Toward<-1, 0, 1>{}) + f(Toward<1, 0, -1>{});
    const V yzp = f(Toward<0, 1, 1>{}) + f(Toward<0, -1, -1>{});
    const V yzm = f(Toward<0, -1, 1>{}) + f(Toward<0, 1, -1>{});
    const V c0 = f(Toward<1, 1, 1>{}) + f(Toward<-1, -1, -1>{});
    const V c1 = f(Toward<-1, -1, 1>{}) + f(Toward<1, 1, -1>{});
    const V c2 = f(Toward<1, -1, 1>{}) + f(Toward<-1, 1, -1>{});
    const V c3 = f(Toward<-1, 1, 1>{}) + f(Toward<1, -1, -1>{});
    const V x = f(Toward<1, 0, 0>{}) + f(Toward<-1, 0, 0>{});
    const V y = f(Toward<0, 1, 0>{}) + f(Toward<0, -1, 0>{});
    const V z = f(Toward<0, 0, 1>{}) + f(Toward<0, 0, -1>{});
    if constexpr (Whole) {
        mass = massOf<V>(f);
        first = momentumOf<V>(f);
    }
    const V c03 = c0 - c3;
    const V c12 = c1 - c2;
    const V xySum = xyp + xym;
    const V xzSum = xzp + xzm;
    const V yzSum = yzp + yzm;
    return {(xyp - xym) + (c03 + c12), (xzp - xzm) + (c03 - c12),
            (yzp - yzm) + ((c0 + c3) - (c1 + c2)), (x - y) + (xzSum - yzSum),
            (x - z) + (xySum - yzSum)};
}

template <bool Whole, class V, class Populations>
DRELT_FUSED_INLINE Additions<V> additionsOf(const Relaxation<V>& r, const Populations& f) {
    V mass = r.rho;
    Triple<V> first;
    const SecondMoments<V> m = secondMoments<Whole, V>(f, mass, first);
    const Triple<V>& u = r.u;
    // second central moments: raw + u_a g_b + u_b g_a, with g = mass u / 2 - first moments, which
    // are rho u - F / 2 where populations, density and velocity belong together
    Triple<V> g;
    if constexpr (Whole) {
        g = {mulAdd(0.5f * mass, u.x, -first.x), mulAdd(0.5f * mass, u.y, -first.y),
             mulAdd(0.5f * mass, u.z, -first.z)};
    } else {
        g = {0.5f * negMulAdd(r.rho, u.x, r.force.x), 0.5f * negMulAdd(r.rho, u.y, r.force.y),
             0.5f * negMulAdd(r.rho, u.z, r.force.z)};
    }
    const V q = r.high - r.shear;
    const V third = q * (1.0f / 3.0f);
    const V twoXx = 2.0f * (u.x * g.x);
    const V k7 = m.xxLessYy + negMulAdd(u.y + u.y, g.y, twoXx);
    const V k8 = m.xxLessZz + negMulAdd(u.z + u.z, g.z, twoXx);
    const V half = 0.5f * q;
    const V source = negMulAdd(0.5f, r.high, V{} + 1.0f);
    const V sy = source * r.force.y;
    const V sz = source * r.force.z;
    Additions<V> to;
    to.mass = r.equilibrium * r.rho;
    to.sx = source * r.force.x;
    to.sy2 = 0.5f * sy;
    to.sz2 = 0.5f * sz;
    to.sy12 = (1.0f / 12.0f) * sy;
    to.sz12 = (1.0f / 12.0f) * sz;
    to.dxx = third * (k7 + k8);
    to.dyy2 = (0.5f * third) * negMulAdd(2.0f, k7, k8);
    to.dzz2 = (0.5f * third) * negMulAdd(2.0f, k8, k7);
    to.dxy2 = half * mulAdd(u.x, g.y, mulAdd(u.y, g.x, m.xy));
    to.dxz2 = half * mulAdd(u.x, g.z, mulAdd(u.z, g.x, m.xz));
    to.dyz4 = 0.5f * half * mulAdd(u.y, g.z, mulAdd(u.z, g.y, m.yz));
    if constexpr (Whole) {
        // mass becomes rho and the first central moments half the force, whatever f holds
        const V keep = 1.0f - r.high;
        to.mass0 = keep * (r.rho - mass);
        to.first1 = 0.5f * r.force.x - keep * negMulAdd(u.x, mass, first.x) - to.sx;
        to.first2 = 0.5f * (0.5f * r.force.y - keep * negMulAdd(u.y, mass, first.y) - sy);
        to.first3 = 0.5f * (0.5f * r.force.z - keep * negMulAdd(u.z, mass, first.z) - sz);
    }
    return to;
}

// Nine populations of one ex; index (ey + 1) + 3 (ez + 1).
template <class V>
struct Sheet {
    V of[9];
};

// Back step of a line of moments (order 1 and 2 halved) about u to its rest, plus and minus value.
template <class V>
DRELT_FUSED_INLINE void backStep(const V& order0, const V& half1, const V& half2, const V& u,
                                 const V& halfU, V& rest, V& plus, V& minus) {
    const V raw1 = mulAdd(halfU, order0, half1);
    const V raw2 = mulAdd(u, half1 + raw1, half2);
    rest = negMulAdd(2.0f, raw2, order0);
    plus = raw2 + raw1;
    minus = raw2 - raw1;
}

template <int X, bool Whole, class V>
DRELT_FUSED_INLINE Sheet<V> sheetOf(const Additions<V>& a, const Triple<V>& u, const V& halfY,
                                    const V& halfZ) {
    V d0, d1;
    constexpr float d2 = X == 0 ? -1.0f : 0.5f;
    if constexpr (X == 0) {
        d0 = negMulAdd(u.x, u.x, V{} + 1.0f);
        d1 = -2.0f * u.x;
    } else {
        d1 = u.x + 0.5f * X;
        d0 = 0.5f * mulAdd(u.x, u.x, X > 0 ? u.x : -u.x);
    }
    const V p = d0 + d2 / 3.0f;
    const V even = mulAdd(a.mass, p, a.sx * d1);
    const V sixth = (1.0f / 6.0f) * even;
    V m00 = mulAdd(d2, a.dxx, even);
    V m10 = mulAdd(a.sy2, p, a.dxy2 * d1);
    V m01 = mulAdd(a.sz2, p, a.dxz2 * d1);
    if constexpr (Whole) {
        m00 = m00 + (a.mass0 * d0 + a.first1 * d1);
        m10 = m10 + a.first2 * d0;
        m01 = m01 + a.first3 * d0;
    }
    const V m20 = mulAdd(a.dyy2, d0, sixth);
    const V m02 = mulAdd(a.dzz2, d0, sixth);
    const V m11 = a.dyz4 * d0;
    const V m21 = a.sz12 * p;
    const V m12 = a.sy12 * p;
    const V m22 = (1.0f / 6.0f) * sixth;
    V t[3][3];  // [ey + 1][order along z]
    backStep(m00, m10, m20, u.y, halfY, t[1][0], t[2][0], t[0][0]);
    backStep(m01, m11, m21, u.y, halfY, t[1][1], t[2][1], t[0][1]);
    backStep(m02, m12, m22, u.y, halfY, t[1][2], t[2][2], t[0][2]);
    Sheet<V> out;
    backStep(t[0][0], t[0][1], t[0][2], u.z, halfZ, out.of[3], out.of[6], out.of[0]);
    backStep(t[1][0], t[1][1], t[1][2], u.z, halfZ, out.of[4], out.of[7], out.of[1]);
    backStep(t[2][0], t[2][1], t[2][2], u.z, halfZ, out.of[5], out.of[8], out.of[2]);
    return out;
}

// Results of a direction and its opposite. Stores that treat the two together have a form of their own.
template <class Results, class D, class Opposite, class V>
DRELT_FUSED_INLINE void storePair(const Results& results, D d, Opposite opposite, const V& first,
                                  const V& second) {
    results(d, first);
    results(opposite, second);
}

// Collides one node (or pack). populations(d) reads the population of direction d; results(d, value)
// takes the post-collision one. Both of an opposite pair are read before either is given back, since
// on the host they trade places. Whole: mass from rho and first moments from the force whatever the
// populations hold; without it they must belong together.
template <bool Whole, class V, class Populations, class Results>
DRELT_FUSED_INLINE void relax(const Relaxation<V>& r, const Populations& f,
                              const Results& results) {
    const Additions<V> a = additionsOf<Whole>(r, f);
    const V halfY = 0.5f * r.u.y;
    const V halfZ = 0.5f * r.u.z;
    const V keep = 1.0f - r.high;
    const auto pair = [&](auto d, auto opposite, const V& one, const V& other)
        __attribute__((always_inline)) {
        const V first = mulAdd(keep, f(d), one);
        const V second = mulAdd(keep, f(opposite), other);
        storePair(results, d, opposite, first, second);
    };
    {
        const Sheet<V> g = sheetOf<0, Whole>(a, r.u, halfY, halfZ);
        results(Toward<0, 0, 0>{}, mulAdd(keep, f(Toward<0, 0, 0>{}), g.of[4]));
        pair(Toward<0, 1, 0>{}, Toward<0, -1, 0>{}, g.of[5], g.of[3]);
        pair(Toward<0, -1, 1>{}, Toward<0, 1, -1>{}, g.of[6], g.of[2]);
        pair(Toward<0, 0, 1>{}, Toward<0, 0, -1>{}, g.of[7], g.of[1]);
        pair(Toward<0, 1, 1>{}, Toward<0, -1, -1>{}, g.of[8], g.of[0]);
    }
    const Sheet<V> g = sheetOf<1, Whole>(a, r.u, halfY, halfZ);
    const Sheet<V> h = sheetOf<-1, Whole>(a, r.u, halfY, halfZ);
    pair(Toward<1, -1, -1>{}, Toward<-1, 1, 1>{}, g.of[0], h.of[8]);
    pair(Toward<1, 0, -1>{}, Toward<-1, 0, 1>{}, g.of[1], h.of[7]);
    pair(Toward<1, 1, -1>{}, Toward<-1, -1, 1>{}, g.of[2], h.of[6]);
    pair(Toward<1, -1, 0>{}, Toward<-1, 1, 0>{}, g.of[3], h.of[5]);
    pair(Toward<1, 0, 0>{}, Toward<-1, 0, 0>{}, g.of[4], h.of[4]);
    pair(Toward<1, 1, 0>{}, Toward<-1, -1, 0>{}, g.of[5], h.of[3]);
    pair(Toward<1, -1, 1>{}, Toward<-1, 1, -1>{}, g.of[6], h.of[2]);
    pair(Toward<1, 0, 1>{}, Toward<-1, 0, -1>{}, g.of[7], h.of[1]);
    pair(Toward<1, 1, 1>{}, Toward<-1, -1, -1>{}, g.of[8], h.of[0]);
}

}  // namespace DRELT_FUSED_ISA
}  // namespace drelt
