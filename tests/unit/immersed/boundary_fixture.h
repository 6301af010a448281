// A boundary for tests: a host record with its arrays and its device mirror.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

#include "platform/runtime.h"
#include "supplement/IBBoundaryMemMgr.h"
#include "support/device.h"

namespace drelt::test {

// Owns the host arrays. All values start as 0, but densities as 1. Usage: change the arrays, upload(), launch
// with device(), download().
class HostBoundary {
public:
    explicit HostBoundary(int count, int device = test::device()) : manager_(device) {
        record_.count = count;
        record_.reservedOne = 1.0f;
        floats_.assign(static_cast<std::size_t>(12 * count), 0.0f);
        doubles_.assign(static_cast<std::size_t>(3 * count), 0.0);
        densities_.assign(static_cast<std::size_t>(count), mlDensity<float>{1.0f});
        float** const arrays[] = {&record_.coordx,     &record_.coordy,     &record_.coordz,
                                  &record_.normalx,    &record_.normaly,    &record_.normalz,
                                  &record_.coordInitx, &record_.coordInity, &record_.coordInitz,
                                  &record_.ux,         &record_.uy,         &record_.uz};
        for (std::size_t i = 0; i < 12; ++i) *arrays[i] = floats_.data() + i * count;
        double** const forces[] = {&record_.forcex, &record_.forcey, &record_.forcez};
        for (std::size_t i = 0; i < 3; ++i) *forces[i] = doubles_.data() + i * count;
        record_.rou = densities_.data();
        manager_.bindHostRecord(&record_);
        manager_.allocate();
        manager_.upload();
    }
    HostBoundary(const HostBoundary&) = delete;
    HostBoundary& operator=(const HostBoundary&) = delete;

    mlLagrangeBoundary& host() { return record_; }
    mlLagrangeBoundary* device() { return manager_.mllaboundary_gpu; }
    IBBoundaryMemMgr& manager() { return manager_; }
    int count() const { return record_.count; }
    void upload() { manager_.upload(); }
    void download() { manager_.download(); }

    // Places the samples on a sphere with outward normals, in an order that has no pattern in space.
    void placeOnSphere(float cx, float cy, float cz, float radius) {
        const double turn = 2.399963229728653;
        for (int i = 0; i < record_.count; ++i) {
            const double z = 1.0 - (2.0 * i + 1.0) / record_.count;
            const double rim = std::sqrt(1.0 - z * z);
            record_.normalx[i] = static_cast<float>(rim * std::cos(turn * i));
            record_.normaly[i] = static_cast<float>(rim * std::sin(turn * i));
            record_.normalz[i] = static_cast<float>(z);
        }
        for (int i = 0; i < record_.count; ++i) {
            const int j = static_cast<int>((7919LL * i) % record_.count);
            std::swap(record_.normalx[i], record_.normalx[j]);
            std::swap(record_.normaly[i], record_.normaly[j]);
            std::swap(record_.normalz[i], record_.normalz[j]);
        }
        for (int i = 0; i < record_.count; ++i) {
            record_.coordx[i] = cx + radius * record_.normalx[i];
            record_.coordy[i] = cy + radius * record_.normaly[i];
            record_.coordz[i] = cz + radius * record_.normalz[i];
        }
    }
    // Sets random velocities with components between -size and size.
    void stir(float size, unsigned seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> any(-size, size);
        for (int i = 0; i < record_.count; ++i) {
            record_.ux[i] = any(random);
            record_.uy[i] = any(random);
            record_.uz[i] = any(random);
        }
    }

private:
    std::vector<float> floats_;
    std::vector<double> doubles_;
    std::vector<mlDensity<float>> densities_;
    mlLagrangeBoundary record_{};
    IBBoundaryMemMgr manager_;
};

// Joins three arrays of a boundary one after the other, as the reference cases hold them.
template <class T>
std::vector<T> joined(const T* x, const T* y, const T* z, int count) {
    std::vector<T> all(x, x + count);
    all.insert(all.end(), y, y + count);
    all.insert(all.end(), z, z + count);
    return all;
}

// Splits them again.
template <class T>
void split(const std::vector<T>& all, T* x, T* y, T* z, int count) {
    std::copy_n(all.begin(), count, x);
    std::copy_n(all.begin() + count, count, y);
    std::copy_n(all.begin() + 2 * count, count, z);
}

}  // namespace drelt::test
