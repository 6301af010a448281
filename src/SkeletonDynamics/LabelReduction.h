// Sums of values that belong to samples, one sum per link, on the device.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <vector>

namespace drelt {

// Device memory that a library algorithm needs during a call. It is kept for the next call.
class DeviceScratch {
public:
    DeviceScratch() = default;
    ~DeviceScratch();
    DeviceScratch(const DeviceScratch&) = delete;
    DeviceScratch& operator=(const DeviceScratch&) = delete;

    // Returns a block of at least `bytes` on the selected device. Give it back after the call.
    void* take(std::size_t bytes);
    void giveBack(const void* memory);

private:
    struct Block {
        void* memory;
        std::size_t bytes;
        int device;
        bool taken;
    };
    std::vector<Block> blocks_;
};

// Sums neighbouring values of Size numbers with equal labels on the selected device. It keeps its buffers
// between calls and allocates new ones when another device is selected.
template <int Size>
class LabelReduction {
public:
    using Value = Eigen::Matrix<double, Size, 1>;

    LabelReduction() = default;
    ~LabelReduction() { release(); }
    LabelReduction(const LabelReduction&) = delete;
    LabelReduction& operator=(const LabelReduction&) = delete;

    // Makes room for so many samples and links on the selected device.
    void reserve(int sampleCount, int linkCount);
    // Sums each run of equal labels, in the order of the samples, into one entry of keys() and sums().
    // labels and values are device pointers. Call reserve first. Labels out of order give more runs than
    // links; of the first linkCount keys those without a run are 0.
    void reduce(const int* labels, const Value* values, int sampleCount, int linkCount);
    // Device pointers, valid until the next call.
    int* keys() { return keys_dev_; }
    Value* sums() { return sums_dev_; }

private:
    void release();

    int capacity_ = 0;
    int device_ = 0;  // on which the next two lie
    int* keys_dev_ = nullptr;
    Value* sums_dev_ = nullptr;
    std::vector<int> unusedKeys_;  // 0 for every link
    DeviceScratch scratch_;
};

// The sizes that exist: wrenches, and the sums of point masses.
extern template class LabelReduction<6>;
extern template class LabelReduction<10>;

// Sums neighbouring values with equal labels on the selected GPU, one entry per run. Further entries keep
// their values. Only a CUDA build defines it.
template <int Size>
void deviceReduceByLabel(const int* labels, const Eigen::Matrix<double, Size, 1>* values,
                         int sampleCount, int* keys, Eigen::Matrix<double, Size, 1>* sums,
                         DeviceScratch& scratch);

}  // namespace drelt
