// A fluid domain on host threads for the benchmark rows: all arrays, a smooth flow, a layer.
#pragma once

#include <cstddef>
#include <vector>

#include "cslbm/mlsolver/mlFlow.h"

namespace drelt::bench {

struct Grid {
    int nx, ny, nz;
    int pml_width;
};

class BenchFlow {
public:
    explicit BenchFlow(const Grid& grid);
    ~BenchFlow();
    BenchFlow(const BenchFlow&) = delete;
    BenchFlow& operator=(const BenchFlow&) = delete;

    mlFlow* flow() { return &flow_; }
    const MLFluidParam* param() const { return &param_; }
    std::size_t nodes() const { return nodes_; }
    // Bytes of all arrays, a node.
    double residentBytesPerNode() const;

private:
    template <class T>
    T* allocate(std::size_t perNode);

    std::size_t nodes_;
    std::size_t bytes_ = 0;
    std::vector<void*> arrays_;
    MLFluidParam param_{};
    mlFlow flow_{};
};

// The domain of a grid; kept until another grid is asked for.
BenchFlow& benchFlow(const Grid& grid);

}  // namespace drelt::bench
