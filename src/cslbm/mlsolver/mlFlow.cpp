#include "cslbm/mlsolver/mlFlow.h"

#include <cstdlib>
#include <new>

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
    release(flow.f);
    release(flow.fPost);
    release(flow.fStore);
    release(flow.flag);
    release(flow.ux);
    release(flow.uy);
    release(flow.uz);
    release(flow.rou);
    release(flow.param);
    release(flow.forcex);
    release(flow.forcey);
    release(flow.forcez);
    release(flow.planeBuffer);
    release(flow.Sopt);
    release(flow.momentMatrix);
    release(flow.momentMatrixInv);
    release(flow.sigma);
    release(flow.Q);
    release(flow.cNQ);
    release(flow.fEqBar);
    release(flow.fEqTilde);
    release(flow.fEqTildeOld);
    release(flow.PML_type);
}

}  // namespace drelt
