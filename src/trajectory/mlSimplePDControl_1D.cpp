#include "trajectory/mlSimplePDControl_1D.h"

namespace drelt {

mlSimplePDControl_1D::mlSimplePDControl_1D(double proportional, double derivative, double step)
    : timestep(step), Kp(proportional), Kd(derivative) {}

double mlSimplePDControl_1D::feedback(double measured, double elapsed) {
    timestep = elapsed;
    dvalue = (measured - value) / elapsed;
    value = measured;
    return (desired_value - measured) * Kp + (desired_dvalue - dvalue) * Kd;
}

void mlSimplePDControl_1D::set_value(double desired) { desired_value = desired; }

void mlSimplePDControl_1D::set_dvalue(double desired) { set_value(desired); }

void mlSimplePDControl_1D::reset() {
    dvalue = value = desired_value = desired_dvalue = timestep = 0;
}

}  // namespace drelt
