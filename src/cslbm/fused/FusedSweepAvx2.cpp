#define DRELT_FUSED_ISA fused_avx2
#include "cslbm/fused/FusedMomentFill.h"
#include "cslbm/fused/FusedSweep.h"

namespace drelt {

const FusedSweeps& fusedSweepsAvx2() {
    static constexpr FusedSweeps sweeps{"avx2", &fused_avx2::edges, &fused_avx2::slab,
                                        &fused_avx2::fillMoments, &fused_avx2::fillOpenNodes};
    return sweeps;
}

}  // namespace drelt
