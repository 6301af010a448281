// A proportional-derivative controller for one value.
#pragma once

namespace drelt {

// output = Kp (desired_value - value) + Kd (desired_dvalue - rate of value), the rate being the
// backward difference of the measured values. The desired rate stays 0. Units are the caller's.
class mlSimplePDControl_1D {
public:
    mlSimplePDControl_1D(double Kp, double Kd, double timestep);

    // The output for a value measured `timestep` after the one before. The first call takes its
    // difference from 0, unfiltered; a time step of 0 gives an infinity or not a number.
    double feedback(double value, double timestep);
    void set_value(double desired_value);
    // Sets the desired value as set_value does, not the desired rate.
    void set_dvalue(double desired_dvalue = 0);
    // Forgets the measurements and the desired value; the gains stay.
    void reset();

private:
    double timestep_;
    double Kp_;
    double Kd_;
    double dvalue_ = 0;  // latest rate
    double value_ = 0;   // latest measurement
    double desired_value_ = 0;
    double desired_dvalue_ = 0;
};

}  // namespace drelt
