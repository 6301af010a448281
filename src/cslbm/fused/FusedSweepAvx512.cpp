#define DRELT_FUSED_ISA fused_avx512
#include "cslbm/fused/FusedMomentFill.h"
#include "cslbm/fused/FusedSweep.h"

namespace drelt {

const FusedSweeps& fusedSweepsAvx512() {
    static constexpr FusedSweeps sweeps{"avx512", &fused_avx512::edges, &fused_avx512::slab,
                                        &fused_avx512::fillMoments, &fused_avx512::fillOpenNodes};
    return sweeps;
}

}  // namespace drelt
