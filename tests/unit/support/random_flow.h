// A flow without symmetry, so that no symmetry hides a fault.
#pragma once

#include <random>

#include "support/flow_fixture.h"

namespace drelt::test {

// Populations near the weights, consistent density, momentum shifted by half of a small force.
inline void fillRandom(HostFlow& flow, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> noise(-0.1f, 0.1f);
    mlFlow& h = flow.host();
    const std::size_t count = flow.nodes();
    for (std::size_t n = 0; n < count; ++n) {
        double rho = 0.0;
        double m[3] = {0.0, 0.0, 0.0};
        for (int i = 0; i < kDirections; ++i) {
            const float f = w_cas1[i] * (1.0f + noise(random));
            h.f[i * count + n] = f;
            rho += f;
            m[0] += ex_cas1[i] * f;
            m[1] += ey_cas1[i] * f;
            m[2] += ez_cas1[i] * f;
        }
        h.rou[n].value = static_cast<float>(rho);
        double* const forces[3] = {h.forcex, h.forcey, h.forcez};
        float* const velocities[3] = {h.ux, h.uy, h.uz};
        for (int a = 0; a < 3; ++a) {
            forces[a][n] = 1e-2 * noise(random);
            velocities[a][n] = static_cast<float>((m[a] + 0.5 * forces[a][n]) / rho);
        }
    }
    flow.upload();
}

}  // namespace drelt::test
