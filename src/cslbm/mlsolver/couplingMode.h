// How one step couples fluid and bodies.
#pragma once

#include <stdexcept>
#include <string>

namespace drelt {

enum couplingMode : int {
    TWO_WAY = 0,    // fluid advances; its forces act on the bodies
    ONE_WAY = 1,    // fluid advances; the bodies move by their own dynamics and drive the fluid
    NO_FLUID = 2,   // bodies alone
    EMPIRICAL = 3,  // bodies alone, under an empirical force model
};

// Throws std::invalid_argument for a number that is no couplingMode; `what` begins the message ("step").
inline void requireCouplingMode(int mode, const char* what) {
    if (mode >= TWO_WAY && mode <= EMPIRICAL) return;
    throw std::invalid_argument(std::string(what) + ": the mode " + std::to_string(mode) +
                                " is none; give a member of COUPLE_MODE");
}

// Whether a mode advances the fluid.
constexpr bool advancesFluid(int mode) { return mode != NO_FLUID && mode != EMPIRICAL; }

// How the force between a sample and the fluid is formed in TWO_WAY.
enum class Coupling : int {
    Explicit,      // from the velocity that the body has before the step
    SemiImplicit,  // from the velocity after it: links carry the point masses of their samples
};

// How strongly the samples of the semi-implicit coupling force the fluid in TWO_WAY.
enum class ForcingWeights : int {
    Area,        // by their areas
    Normalised,  // by their areas over the share of the slip that these would take away
};

}  // namespace drelt
