// Arrays of a record on the host with a copy on a device, under the same field. An owner lists its arrays
// once and visits the list to allocate, copy and free them.
#pragma once

#include <cstdint>
#include <string>

#include "cslbm/mlsolver/mlFlow.h"
#include "platform/check.h"
#include "supplement/StateVisitor.h"

namespace drelt {

// The source file that owns a mirror, and the names of the two records in it. Failure messages quote
// each statement as that file would write it.
struct MirrorOwner {
    const char* hostRecord;
    const char* deviceRecord;
    const char* file;
    int line;
};

template <class T>
inline constexpr const char* kTypeName = nullptr;
template <>
inline constexpr const char* kTypeName<float> = "float";
template <>
inline constexpr const char* kTypeName<double> = "double";
template <>
inline constexpr const char* kTypeName<mlDensity<float>> = "mlDensity<float>";
template <>
inline constexpr const char* kTypeName<MLLATTICENODE_FLAG> = "MLLATTICENODE_FLAG";
template <>
inline constexpr const char* kTypeName<PML_TYPE> = "PML_TYPE";
template <>
inline constexpr const char* kTypeName<MLFluidParam> = "MLFluidParam";

// One array of the list: the field that points to it and its name. A record of `count` items has
// perItem * count entries, or a single one if perItem is 0. Messages call the device pointer
// STEM_dev. The stem is the name unless another is given.
template <class Record, class T>
class MirroredArray {
public:
    MirroredArray(const MirrorOwner& owner, T* Record::*field, const char* name, int perItem = 1,
                  const char* stem = nullptr)
        : owner_(owner),
          field_(field),
          name_(name),
          perItem_(perItem),
          stem_(stem != nullptr ? stem : name) {
        static_assert(kTypeName<T> != nullptr, "messages need the type's name");
    }

    void allocate(T*& there, std::int64_t count) const {
        check(cudaMalloc(&there, bytes(count)),
              [&] { return "cudaMalloc(&" + device() + ", " + size() + ")"; });
    }
    void upload(T* there, const Record& host, std::int64_t count) const {
        check(cudaMemcpy(there, host.*field_, bytes(count), cudaMemcpyHostToDevice), [&] {
            return "cudaMemcpy(" + device() + ", " + hostArray() + ", " + size() +
                   ", cudaMemcpyHostToDevice)";
        });
    }
    void download(const T* there, Record& host, std::int64_t count) const {
        check(cudaMemcpy(host.*field_, there, bytes(count), cudaMemcpyDeviceToHost), [&] {
            return "cudaMemcpy(" + hostArray() + ", " + device() + ", " + size() +
                   ", cudaMemcpyDeviceToHost)";
        });
    }
    // Writes the device pointer into the field of the device record.
    void patch(Record* record, T* there) const {
        check(cudaMemcpy(&(record->*field_), &there, sizeof(T*), cudaMemcpyHostToDevice), [&] {
            return std::string("cudaMemcpy(&(") + owner_.deviceRecord + "->" + name_ + "), &" +
                   device() + ", sizeof(" + device() + "), cudaMemcpyHostToDevice)";
        });
    }
    // Lists the device's array as part of a state.
    void list(StateVisitor& state, T* there, std::int64_t count) const {
        state.deviceArray(name_, there, bytes(count) / sizeof(T));
    }
    void free(T*& there) const {
        check(cudaFree(there), [&] { return "cudaFree(" + device() + ")"; });
        there = nullptr;
    }

private:
    std::size_t bytes(std::int64_t count) const {
        return sizeof(T) * static_cast<std::size_t>(perItem_ == 0 ? 1 : perItem_ * count);
    }
    std::string device() const { return std::string(stem_) + "_dev"; }
    std::string hostArray() const { return std::string(owner_.hostRecord) + "->" + name_; }
    std::string size() const {
        const std::string items = std::string(owner_.hostRecord) + "->count";
        const std::string entries = perItem_ == 0   ? "1"
                                    : perItem_ == 1 ? items
                                                    : std::to_string(perItem_) + " * " + items;
        return entries + " * sizeof(" + kTypeName<T> + ")";
    }
    template <class Statement>
    void check(cudaError_t status, Statement&& statement) const {
        if (status == cudaSuccess) return;
        platform::failDeviceCall(status, statement().c_str(), owner_.file, owner_.line);
    }

    const MirrorOwner& owner_;
    T* Record::*field_;
    const char* name_;
    int perItem_;
    const char* stem_;
};

}  // namespace drelt
