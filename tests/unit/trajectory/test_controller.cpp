// Compares the controller with the reference case and with values computed by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "support/vectors.h"
#include "trajectory/mlSimplePDControl_1D.h"

namespace drelt::test {
namespace {

TEST(Controller, AgreesWithReference) {
    const VectorCase given("pd_control");
    mlSimplePDControl_1D control(given.scalar("Kp"), given.scalar("Kd"), given.scalar("timestep"));
    control.set_value(given.scalar("desired"));
    const auto value = given.array<double>("in_value");
    const auto timestep = given.array<double>("in_timestep");
    const auto expected = given.array<double>("out_output");
    for (std::size_t i = 0; i < value.size(); ++i) {
        EXPECT_NEAR(control.feedback(value[i], timestep[i]), expected[i],
                    1e-12 * std::abs(expected[i]))
            << "call " << i;
    }
}

TEST(Controller, GainsSetPointAndReset) {
    mlSimplePDControl_1D proportional(2, 0, 0.1);
    proportional.set_value(1);
    EXPECT_EQ(proportional.feedback(0.5, 0.1), 1.0);
    proportional.set_dvalue(3);  // sets the value
    EXPECT_EQ(proportional.feedback(0.5, 0.1), 5.0);
    proportional.set_dvalue();
    EXPECT_EQ(proportional.feedback(0.5, 0.1), -1.0);

    mlSimplePDControl_1D derivative(0, 1, 0.1);
    EXPECT_EQ(derivative.feedback(1, 0.1), -10.0);
    EXPECT_EQ(derivative.feedback(1, 0.1), 0.0);
    EXPECT_EQ(derivative.feedback(2, 0.5), -2.0);  // uses the time step of this call
    EXPECT_EQ(derivative.dvalue, 2.0);
    EXPECT_EQ(derivative.value, 2.0);
    EXPECT_EQ(derivative.feedback(1, 0.0), INFINITY);

    mlSimplePDControl_1D control(2, 1, 0.1);
    control.set_value(4);
    control.feedback(3, 0.1);
    control.reset();
    EXPECT_EQ(control.timestep + control.dvalue + control.value + control.desired_value, 0.0);
    EXPECT_EQ(control.feedback(0, 1), 0.0);     // no set point, no measurement
    EXPECT_EQ(control.feedback(1, 0.5), -4.0);  // but still the gains
}

}  // namespace
}  // namespace drelt::test
