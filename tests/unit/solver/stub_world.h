// Bodies that a test moves by hand between steps: a frame and one boundary.
#pragma once

#include <dart/dynamics/SimpleFrame.hpp>
#include <functional>
#include <vector>

#include "cslbm/mlsolver/mlBaseCouplingSolver.h"
#include "platform/runtime.h"
#include "supplement/IBBoundaryMemMgr.h"
#include "support/device.h"

namespace drelt::test {

// A boundary record with its arrays and its device mirror.
class StubBoundary {
public:
    explicit StubBoundary(std::size_t count, float sampleArea)
        : floats_(13 * count), forces_(3 * count), manager(test::device()) {
        float* next = floats_.data();
        for (float** array :
             {&record.coordx, &record.coordy, &record.coordz, &record.normalx, &record.normaly,
              &record.normalz, &record.coordInitx, &record.coordInity, &record.coordInitz,
              &record.ux, &record.uy, &record.uz}) {
            *array = next;
            next += count;
        }
        record.rou = reinterpret_cast<mlDensity<float>*>(next);
        for (std::size_t i = 0; i < count; ++i) record.rou[i].value = 1;
        record.forcex = forces_.data();
        record.forcey = record.forcex + count;
        record.forcez = record.forcey + count;
        record.sampleArea = sampleArea;
        record.count = static_cast<int>(count);
        record.reservedOne = 1;
        manager.bindHostRecord(&record);
        manager.allocate();
        manager.upload();
    }
    const std::vector<double>& forces() const { return forces_; }

private:
    std::vector<float> floats_;
    std::vector<double> forces_;

public:
    mlLagrangeBoundary record{};
    IBBoundaryMemMgr manager;
};

class StubWorld : public mlBaseCouplingSolver {
public:
    void step(int mode, float dt, float dx) override {
        lastMode = mode;
        lastDt = dt;
        lastDx = dx;
        if (onStep) onStep();
    }
    std::vector<IBBoundaryMemMgr*> getBoundaries() override { return boundaries; }
    void setGravity(const Eigen::Vector3d&) override {}
    void setTimestep(float) override {}
    void reset() override {}
    dart::dynamics::Frame* getFrame() override { return frame.get(); }
    bool isFixed() override { return fixed; }

    std::shared_ptr<dart::dynamics::SimpleFrame> frame =
        std::make_shared<dart::dynamics::SimpleFrame>(dart::dynamics::Frame::World(), "stub");
    std::vector<IBBoundaryMemMgr*> boundaries;
    std::function<void()> onStep;
    bool fixed = false;
    int lastMode = -1;
    float lastDt = 0, lastDx = 0;
};

}  // namespace drelt::test
