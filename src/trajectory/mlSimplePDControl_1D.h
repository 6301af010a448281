// A proportional-derivative controller for one value.
#pragma once

namespace drelt {

// Output: Kp (desired_value - value) + Kd (desired_dvalue - dvalue). The rate dvalue is the backward
// difference of the measured values. Nothing sets desired_dvalue: the desired rate stays 0. The
// caller chooses the units.
struct mlSimplePDControl_1D {
    mlSimplePDControl_1D(double proportional, double derivative, double step);

    // Takes the value measured `elapsed` after the one before and returns the output. The first call
    // forms its difference with 0, without a filter. A time of 0 gives infinity or not a number.
    double feedback(double measured, double elapsed);
    void set_value(double desired);
    // Sets desired_value like set_value; it does not set the desired rate.
    void set_dvalue(double desired = 0);
    // Forgets the measurements and the desired value; keeps the gains.
    void reset();

    double timestep;  // of the latest call
    double Kp;
    double Kd;
    double dvalue = 0;  // latest rate
    double value = 0;   // latest measurement
    double desired_value = 0;
    double desired_dvalue = 0;
};

}  // namespace drelt
