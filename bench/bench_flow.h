// A fluid domain on the chosen device for the benchmark rows, with all arrays, a smooth flow and an absorbing
// layer.
#pragma once

#include <cstddef>
#include <vector>

#include "cslbm/mlsolver/mlFlow.h"
#include "setup.h"

namespace drelt::bench {

class BenchFlow {
public:
    explicit BenchFlow(const Grid& grid);
    ~BenchFlow();
    BenchFlow(const BenchFlow&) = delete;
    BenchFlow& operator=(const BenchFlow&) = delete;

    mlFlow* flow() { return flow_dev_; }
    // The device record's content: its pointers are device pointers.
    const mlFlow& image() const { return image_; }
    const MLFluidParam* param() const { return &param_; }
    std::size_t nodes() const { return nodes_; }
    // Bytes of all arrays per node.
    double residentBytesPerNode() const;

private:
    template <class T, class Value>
    void fill(T*& array, std::size_t perNode, Value&& value);
    template <class Visit>
    void forEachNode(Visit&& visit) const;
    void start();
    void startLayer();

    std::size_t nodes_;
    std::size_t bytes_ = 0;
    std::vector<void*> arrays_;
    MLFluidParam param_{};
    mlFlow image_{};
    mlFlow* flow_dev_ = nullptr;
};

// The domain of a grid, or null if memory does not suffice. It is kept until another grid is asked for.
BenchFlow* benchFlow(const Grid& grid);
void releaseBenchFlow();

}  // namespace drelt::bench
