#include "simulatorInterface/simParams.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "platform/messages.h"

namespace drelt {
namespace {

constexpr float kUnset = -1.0f;

// Time step of the solver [s]; single precision in this order.
float timeStep(const simParams& p) { return (p.l0p * p.u0k) / (p.N * p.u0p); }

}  // namespace

void simParams::derive(float simParams::*field, float value) {
    assign(field, value);
    derived_.push_back({field, value});
}

void simParams::assign(float simParams::*field, float value) {
    const auto own = [&](const Derived& entry) { return entry.field == field; };
    derived_.erase(std::remove_if(derived_.begin(), derived_.end(), own), derived_.end());
    this->*field = value;
}

// Makes the field unset again if it holds a derived value.
void simParams::forget(float simParams::*field) {
    for (const Derived& entry : derived_) {
        if (entry.field != field) continue;
        const float value = this->*field;
        const bool same = value == entry.value || (std::isnan(value) && std::isnan(entry.value));
        return assign(field, same ? kUnset : value);
    }
}

void simParams::setN(float value) {
    assign(&simParams::N, value);
    forget(&simParams::dx);
    forget(&simParams::u0p);
}

void simParams::setL0p(float value) {
    assign(&simParams::l0p, value);
    forget(&simParams::dx);
    forget(&simParams::u0p);
}

void simParams::setU0p(float value) { assign(&simParams::u0p, value); }

void simParams::setU0k(float value) {
    u0k = value;
    forget(&simParams::u0p);
}

void simParams::setSetupMode(SETUP_MODE value) {
    if (value == setup_mode) return;
    setup_mode = value;
    for (auto field : {&simParams::dx, &simParams::N, &simParams::l0p, &simParams::u0p}) {
        forget(field);
    }
}

void simParams::normaliseGravity() {
    derive(&simParams::l0p, std::max(height, width));
    derive(&simParams::N, l0p / dx);
    const double length = l0p;
    derive(&simParams::u0p,
           static_cast<float>(std::max(std::sqrt(2 * std::fabs(gravity[1]) * length),
                                       std::sqrt(2 * std::fabs(gravity[0]) * length))));
}

void simParams::normaliseManual() {
    if (l0p == kUnset || N == kUnset) {
        // sic: prescribed text
        std::puts(" [warning] N or l0p not setted!!! set N= 256 ,l0p =4 as default ");
        N = 256;
        l0p = 4;
    }
    if (dx == kUnset) derive(&simParams::dx, l0p / N);
    if (u0p == kUnset) {
        // sic: prescribed text
        inform("[Info] u0p not setted, try generating use dx %f u0k %f dtp %f \n", dx, u0k, dtp);
        if (dtp == kUnset) {
            std::puts("[Warning] dtp not setted , default to be 0.0003");
            dtp = 0.0003f;
        }
        derive(&simParams::u0p, u0k * dx * dtk / dtp);
        inform("[Info] u0p auto calculated!  u0p = %f \n", u0p);
    }
}

void simParams::normalise() {
    if (setup_mode == GRAVITY) {
        normaliseGravity();
    } else {
        normaliseManual();
    }
}

float simParams::get_tp() {
    normalise();
    return timeStep(*this);
}

mlUnitScale simParams::computeUnitScale() {
    normalise();
    mlUnitScale scale{};
    scale.l0p = l0p;
    scale.N = N;
    scale.u0px = scale.u0py = scale.u0pz = u0p;
    scale.v0p = visp;
    scale.v0k = (u0k * N * visp) / (u0p * l0p);
    scale.u0k = u0k;
    scale.rou0p = rou0p;
    scale.Re = (u0p * l0p) / visp;
    return scale;
}

int simParams::getIterPerSave(int frame_rate) {
    if (frame_rate <= 0) {
        throw std::invalid_argument("getIterPerSave: frame_rate is " + std::to_string(frame_rate) +
                                    "; give a positive number of frames per second");
    }
    const mlUnitScale scale = computeUnitScale();
    const float iterations =
        (scale.N * scale.u0px) / (static_cast<float>(frame_rate) * scale.l0p * scale.u0k);
    if (!(std::fabs(iterations) < 2147483648.0f)) {
        throw std::overflow_error(
            "getIterPerSave: the time step gives " + std::to_string(iterations) +
            " steps per frame; set N, l0p, u0p and u0k to positive finite numbers");
    }
    return static_cast<int>(iterations);
}

}  // namespace drelt
