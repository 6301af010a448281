// How one step couples fluid and bodies.
#pragma once

namespace drelt {

enum couplingMode : int {
    TWO_WAY = 0,    // fluid advances; its forces act on the bodies
    ONE_WAY = 1,    // fluid advances; the bodies move by their own dynamics and drive the fluid
    NO_FLUID = 2,   // bodies alone
    EMPIRICAL = 3,  // bodies alone, under an empirical force model
};

// Whether a mode advances the fluid.
constexpr bool advancesFluid(int mode) { return mode != NO_FLUID && mode != EMPIRICAL; }

}  // namespace drelt
