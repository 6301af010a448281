// Watches whether bodies lie inside the fluid box.
#pragma once

#include <vector>

namespace drelt {

class skWorld;
struct mlFlow;

// Says once per body, on standard error, that samples of it lie outside the fluid box: the fluid and these
// samples do not act on each other.
class BodyWatch {
public:
    // Steps between two looks. A look copies the positions of all samples to the host.
    static constexpr int kSteps = 16;

    // Forgets which bodies were reported.
    void start();
    // `domain` is the host record of the box, `step` the number of steps done.
    void look(skWorld& world, const mlFlow& domain, int step);

private:
    int outside(int body, skWorld& world, const mlFlow& domain);

    std::vector<bool> reported_;
    std::vector<float> positions_;
};

}  // namespace drelt
