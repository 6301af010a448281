// The second-order polynomial equilibrium in central moments.
#pragma once

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "platform/launch.h"

namespace drelt {

// The table moments k9 to k26 about u of w_i rho (1 + 3 e.u + 9/2 (e.u)^2 - 3/2 u.u). The moments below k9 are
// those of the constant equilibrium. The polynomial differs from the Maxwellian by powers of u, from the
// third order on.
struct PolynomialEquilibrium {
    float fromTrace[kMoments - 9];

    DRELT_HOST_DEVICE PolynomialEquilibrium(float rho, const float (&u)[3]) {
        const float x = u[0], y = u[1], z = u[2];
        const float xx = x * x, yy = y * y, zz = z * z;
        const auto k = [&](int j) DRELT_LAMBDA_INLINE -> float& { return fromTrace[j - 9]; };
        k(9) = rho;
        k(10) = -rho * x * (yy + zz);
        k(11) = -rho * y * (xx + zz);
        k(12) = -rho * z * (xx + yy);
        k(13) = -rho * x * (yy - zz);
        k(14) = -rho * y * (xx - zz);
        k(15) = -rho * z * (xx - yy);
        k(16) = -rho * x * y * z;
        k(17) = rho * (9.0f * yy * zz + 9.0f * xx * yy + 9.0f * xx * zz + 1.0f) / 3.0f;
        k(18) = rho * (27.0f * xx * yy + 27.0f * xx * zz - 27.0f * yy * zz + 1.0f) / 9.0f;
        k(19) = 3.0f * rho * xx * (yy - zz);
        k(20) = 3.0f * rho * xx * y * z;
        k(21) = 3.0f * rho * x * yy * z;
        k(22) = 3.0f * rho * x * y * zz;
        k(23) = -rho * x * (zz + 18.0f * yy * zz + yy) / 3.0f;
        k(24) = -rho * y * (zz + 18.0f * xx * zz + xx) / 3.0f;
        k(25) = -rho * z * (yy + 18.0f * xx * yy + xx) / 3.0f;
        k(26) =
            rho *
            (27.0f * yy * zz + 27.0f * xx * zz + 27.0f * xx * yy + 270.0f * xx * yy * zz + 1.0f) /
            27.0f;
    }

    static constexpr bool has(int j) { return j >= 9; }
    template <int J>
    DRELT_HOST_DEVICE float of(Constant<J>) const {
        return fromTrace[J - 9];
    }
};

}  // namespace drelt
