#define DRELT_FUSED_ISA fused_baseline
#include "cslbm/fused/FusedMomentFill.h"
#include "cslbm/fused/FusedSweep.h"

namespace drelt {

const FusedSweeps& fusedSweepsBaseline() {
    static constexpr FusedSweeps sweeps{"baseline", &fused_baseline::edges, &fused_baseline::slab,
                                        &fused_baseline::fillMoments,
                                        &fused_baseline::fillOpenNodes};
    return sweeps;
}

}  // namespace drelt
