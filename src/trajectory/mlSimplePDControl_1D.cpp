#include "trajectory/mlSimplePDControl_1D.h"

namespace drelt {

mlSimplePDControl_1D::mlSimplePDControl_1D(double Kp, double Kd, double timestep)
    : timestep_(timestep), Kp_(Kp), Kd_(Kd) {}

double mlSimplePDControl_1D::feedback(double value, double timestep) {
    timestep_ = timestep;
    dvalue_ = (value - value_) / timestep;
    value_ = value;
    return (desired_value_ - value) * Kp_ + (desired_dvalue_ - dvalue_) * Kd_;
}

void mlSimplePDControl_1D::set_value(double desired_value) { desired_value_ = desired_value; }

void mlSimplePDControl_1D::set_dvalue(double desired_dvalue) { set_value(desired_dvalue); }

void mlSimplePDControl_1D::reset() {
    dvalue_ = value_ = desired_value_ = desired_dvalue_ = timestep_ = 0;
}

}  // namespace drelt
