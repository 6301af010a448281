#include "cslbm/mlsolver/mlFlow.h"

#include <cstdlib>
#include <new>

#include "cslbm/mlsolver/FlowArrays.h"

namespace drelt {

void* detail::zeroedPages(std::size_t count, std::size_t size) {
    void* const memory = std::calloc(count, size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

namespace {

template <class T>
void release(T*& array) {
    std::free(array);
    array = nullptr;
}

}  // namespace

void freeHostArrays(mlFlow& flow) {
    forEachDeviceArray([&](auto field, const char*, int) { release(flow.*field); });
    release(flow.planeBuffer);
    release(flow.momentMatrix);
    release(flow.momentMatrixInv);
}

}  // namespace drelt
