// The collision of the production step for a value type V, one float or a pack. It is the collision of
// mlCollideAddForceHighorderFiiting in a short form: the trace and all moments of third and higher order
// share the rate s_high, and equilibrium and force source are products of one factor per axis, so that
//
//   f* = (1 - s_high) f + s_high E(rho, u) + (1 - s_high / 2) S(F, u)
//        + (s_high - s_shear) T^-1[deviator of the second central moments]
//
// needs a forward transform of the second moments only. E, S and the deviator are transformed back together:
// the x step is written out for each ex, then y and z follow line by line.
//
// The operators keep the long form (mlCentralMoments.h, mlCollideNode.h): they also serve collisions with
// other rates and equilibria, which the short form cannot express, and they round in another order.
//
// Nothing here knows where a population is stored.
#pragma once

#include "cslbm/fused/FusedDirections.h"
#include "cslbm/gpu_inc/gpu/mlTurbulence.h"
#include "platform/arithmetic.h"
#include "platform/vector3.h"

namespace drelt {
namespace DRELT_FUSED_ISA {

// The inputs of a node's relaxation: density, velocity shifted by half the force, the force whose source
// enters, the two rates, and the share of the equilibrium (s_high, less in the absorbing layer).
template <class V>
struct Relaxation {
    V rho;
    Vector3<V> u, force;
    V shear, high, equilibrium;
};

// The central moments of what is added to (1 - s_high) f. They include the factors 1/2 of the back steps
// along y and z.
template <class V>
struct Additions {
    V mass;                      // density of the equilibrium
    V sx, sy2, sz2, sy12, sz12;  // force source
    V dxx, dyy2, dzz2;           // deviator, diagonal
    V dxy2, dxz2, dyz4;          // deviator, off the diagonal
    // With Whole: what (1 - s_high) f lacks of the conserved moments.
    V mass0, first1, first2, first3;
};

// The sum of the populations.
template <class V, class Populations>
DRELT_HOST_DEVICE V massOf(const Populations& f) {
    // Small populations first, as in mlCalOneOrderMomentOptKernel, but in pairs.
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

// The raw momentum of the populations.
template <class V, class Populations>
DRELT_HOST_DEVICE Vector3<V> momentumOf(const Populations& f) {
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

// The second moments of the populations in the combinations that the deviator needs.
template <class V>
struct SecondMoments {
    V xy, xz, yz, xxLessYy, xxLessZz;
};

// Forms the second moments; with Whole also the sum and the first moments.
template <bool Whole, class V, class Populations>
DRELT_HOST_DEVICE SecondMoments<V> secondMoments(const Populations& f, V& mass, Vector3<V>& first) {
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

// Forms what the collision adds to a node's populations f.
template <bool Whole, class V, class Populations>
DRELT_HOST_DEVICE Additions<V> additionsOf(const Relaxation<V>& r, const Populations& f) {
    V mass = r.rho;
    Vector3<V> first;
    const SecondMoments<V> m = secondMoments<Whole, V>(f, mass, first);
    const Vector3<V>& u = r.u;
    // The second central moments are raw + u_a g_b + u_b g_a with g = mass u / 2 - first moments. The first
    // moments are rho u - F / 2 where density and velocity are those of the populations.
    Vector3<V> g;
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
        // The mass becomes rho and the first central moments half the force, whatever f holds.
        const V keep = 1.0f - r.high;
        to.mass0 = keep * (r.rho - mass);
        to.first1 = 0.5f * r.force.x - keep * negMulAdd(u.x, mass, first.x) - to.sx;
        to.first2 = 0.5f * (0.5f * r.force.y - keep * negMulAdd(u.y, mass, first.y) - sy);
        to.first3 = 0.5f * (0.5f * r.force.z - keep * negMulAdd(u.z, mass, first.z) - sz);
    }
    return to;
}

// Nine populations with the same ex, at index (ey + 1) + 3 (ez + 1).
template <class V>
struct Sheet {
    V of[9];
};

// The back step of a line of moments about u (orders 1 and 2 halved) to its rest, plus and minus value.
template <class V>
DRELT_HOST_DEVICE void backStep(const V& order0, const V& half1, const V& half2, const V& u,
                                const V& halfU, V& rest, V& plus, V& minus) {
    const V raw1 = mulAdd(halfU, order0, half1);
    const V raw2 = mulAdd(u, half1 + raw1, half2);
    rest = negMulAdd(2.0f, raw2, order0);
    plus = raw2 + raw1;
    minus = raw2 - raw1;
}

// Transforms the additions back to the nine populations with ex = X.
template <int X, bool Whole, class V>
DRELT_HOST_DEVICE Sheet<V> sheetOf(const Additions<V>& a, const Vector3<V>& u, const V& halfY,
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

// Stores the results of a direction and its opposite. A store that treats both together overloads this.
template <class Results, class D, class Opposite, class V>
DRELT_HOST_DEVICE void storePair(const Results& results, D d, Opposite opposite, const V& first,
                                 const V& second) {
    results(d, first);
    results(opposite, second);
}

// Collides one node or one pack. f(d) reads the population of direction d, results(d, value) stores the
// post-collision one. Both populations of an opposite pair are read before either result is stored, because
// they trade places in memory. With Whole, the mass comes from rho and the first moments from the force,
// whatever the populations hold; without it, rho and u must be those of the populations.
template <bool Whole, class V, class Populations, class Results>
DRELT_HOST_DEVICE void relax(const Relaxation<V>& r, const Populations& f, const Results& results) {
    const Additions<V> a = additionsOf<Whole>(r, f);
    const V halfY = 0.5f * r.u.y;
    const V halfZ = 0.5f * r.u.z;
    const V keep = 1.0f - r.high;
    const auto pair = [&](auto d, auto opposite, const V& one, const V& other) DRELT_LAMBDA_INLINE {
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
