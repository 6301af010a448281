// Copies between a domain's own arrays and the flow records of the operators.
#define DRELT_FUSED_ISA fused_transfer
#include <algorithm>
#include <cstring>

#include "cslbm/fused/FusedDomain.h"
#include "cslbm/fused/FusedRows.h"
#include "cslbm/gpu_inc/gpu/mlOpenPlane.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "supplement/StateVisitor.h"

namespace drelt {

using fused_transfer::codeOfDirection;
using fused_transfer::findPlaces;
using fused_transfer::momentRows;
using fused_transfer::MomentRows;
using fused_transfer::Places;
using fused_transfer::rowStart;

namespace {

void copyRow(float* to, const float* from, int count) {
    std::memcpy(to, from, sizeof(float) * static_cast<std::size_t>(count));
}

}  // namespace

// Rows in parallel, each by the thread that will sweep it, so that its pages lie near that thread.
template <class Visit>
void FusedDomain::forEachRow(Visit&& visit) const {
#pragma omp parallel
    {
        FlushDenormals flush;
#pragma omp for schedule(static)
        for (int z = 0; z < state_.nz; ++z) {
            for (int y = 0; y < state_.ny; ++y) visit(y, z);
        }
    }
}

void FusedDomain::startAtRest() {
    FusedState& s = state_;
    forEachRow([&](int y, int z) {
        Places places;
        findPlaces(s, y, z, places);
        for (int i = 0; i < kDirections; ++i) {
            std::fill_n(places.at[codeOfDirection(i)], s.nx, w_cas1[i]);
        }
        for (float* const buffer : {s.moments, momentsBefore_}) {
            if (buffer == nullptr) continue;
            // density 1 in the padding too: all lanes must compute with finite numbers
            std::fill_n(buffer + rowStart(s, y, z, 4), s.pitch, 1.0f);
        }
    });
    s.before = momentsBefore_;
}

void FusedDomain::load(const mlFlow& host) {
    FusedState& s = state_;
    s.momentsGiven = true;
    forEachRow([&](int y, int z) {
        const std::ptrdiff_t n = (static_cast<std::ptrdiff_t>(s.ny) * z + y) * s.nx;
        copyRow(momentRows(s, s.moments, y, z).rho, &host.rou[n].value, s.nx);
        if (host.Sopt != nullptr) copyRow(s.sopt + rowStart(s, y, z, 1), host.Sopt + n, s.nx);
    });
    upload(host);
}

void FusedDomain::upload(const mlFlow& host) {
    FusedState& s = state_;
    if (!s.momentsGiven) {
        // the density that stays is that of the populations that are overwritten now
        forEachRow([&](int y, int z) {
            const MomentRows to = momentRows(s, s.moments, y, z);
            float* const rows[4] = {to.rho, to.ux, to.uy, to.uz};
            sweeps_->fillMoments(s, y, z, 0, s.nx, rows);
        });
    }
    const std::int64_t count = host.count;
    forEachRow([&](int y, int z) {
        const std::ptrdiff_t n = (static_cast<std::ptrdiff_t>(s.ny) * z + y) * s.nx;
        Places places;
        findPlaces(s, y, z, places);
        forEachDirection([&](auto d) {
            constexpr int i = decltype(d)::index;
            float* const row = places.at[codeOfDirection(i)];
            if (host.f != nullptr) {
                copyRow(row, host.f + i * count + n, s.nx);
                return;
            }
            for (int x = 0; x < s.nx; ++x) {
                row[x] = uniformPopulation(d, host.rou[n + x].value, uniformVelocity_);
            }
        });
        const MomentRows to = momentRows(s, s.moments, y, z);
        copyRow(to.ux, host.ux + n, s.nx);
        copyRow(to.uy, host.uy + n, s.nx);
        copyRow(to.uz, host.uz + n, s.nx);
    });
    s.momentsGiven = true;
    s.planesPending = false;
}

void FusedDomain::resetLayer(const mlDensity<float>* rou) {
    FusedState& s = state_;
    forcesGiven_ = false;
    dropForces();
    if (momentsBefore_ == nullptr) return;
    if (reference_ == nullptr) {
        const auto* const end = rou + nodes_;
        if (std::find_if(rou, end, [](auto r) { return r.value != 1.0f; }) != end) {
            reference_ = allocate<float>(static_cast<std::size_t>(s.ny + 1) * s.nz * s.pitch);
        }
    }
    forEachRow([&](int y, int z) {
        const float* const from = &rou[(static_cast<std::ptrdiff_t>(s.ny) * z + y) * s.nx].value;
        float* const before = momentsBefore_ + rowStart(s, y, z, 4);
        std::fill_n(before, 4 * s.pitch, 0.0f);
        copyRow(before, from, s.nx);
        if (reference_ != nullptr) copyRow(reference_ + rowStart(s, y, z, 1), from, s.nx);
    });
    s.reference = reference_;
}

void FusedDomain::setStepBefore(const mlFlow& fluid) {
    const FusedState& s = state_;
    if (momentsBefore_ == nullptr) return;
    forEachRow([&](int y, int z) {
        const std::ptrdiff_t n = (static_cast<std::ptrdiff_t>(s.ny) * z + y) * s.nx;
        const MomentRows to = momentRows(s, momentsBefore_, y, z);
        for (int x = 0; x < s.nx; ++x) {
            const float rho = fluid.rou[n + x].value;
            to.rho[x] = rho;
            to.ux[x] = fluid.ux[n + x] / rho;
            to.uy[x] = fluid.uy[n + x] / rho;
            to.uz[x] = fluid.uz[n + x] / rho;
        }
    });
}

// Clears the spread forces that no step has consumed.
void FusedDomain::dropForces() {
    FusedState& s = state_;
    forEachRow([&](int y, int z) {
        unsigned* const words = s.spread + wordOf(y, z);
        if (std::all_of(words, words + s.chunkWords, [](unsigned word) { return word == 0; }))
            return;
        for (double* const force : s.force) {
            std::fill_n(force + (static_cast<std::ptrdiff_t>(s.ny) * z + y) * s.nx, s.nx, 0.0);
        }
        std::fill_n(words, s.chunkWords, 0U);
    });
}

// Floats of an array with this many fields, without the extra plane of the populations.
std::size_t FusedDomain::floatsOf(int fields) const {
    return static_cast<std::size_t>(fields) * state_.pitch * (state_.ny + 1) * state_.nz;
}

// The padding of rows travels too: populations that have left the grid stand there until they are read.
// `moments` are state only if they were given; otherwise the next step forms them.
void FusedDomain::visitState(StateVisitor& state) {
    ProductionDomain::visitState(state);
    FusedState& s = state_;
    visitNumbers(state, s);
    visitForces(state, s, spread_.size(), false);
    const std::size_t extra = std::size_t{27} * s.pitch * (s.ny + 1);
    state.deviceArray("populations", s.populations, floatsOf(27) + extra);
    state.deviceArray("sopt", s.sopt, floatsOf(1));
    const auto moments = floatsOf(4);
    state.optionalArray<float>("moments", s.momentsGiven ? s.moments : nullptr, moments, false,
                               [&s, moments](const float* from) {
                                   if (from != nullptr) std::copy_n(from, moments, s.moments);
                               });
    if (momentsBefore_ != nullptr) state.deviceArray("momentsBefore", momentsBefore_, moments);
    const auto dense = floatsOf(1);
    state.optionalArray<float>("reference", s.reference, dense, false,
                               [this, dense](const float* from) {
                                   state_.reference = nullptr;
                                   if (from == nullptr) return;
                                   if (reference_ == nullptr) reference_ = allocate<float>(dense);
                                   std::copy_n(from, dense, reference_);
                                   state_.reference = reference_;
                               });
}

void FusedDomain::stateLoaded(bool hostNewer) {
    ProductionDomain::stateLoaded(hostNewer);
    fused_transfer::findOffsets(state_);
}

void FusedDomain::materialise(mlFlow& host) const {
    const FusedState& s = state_;
    const std::int64_t count = host.count;
    forEachRow([&](int y, int z) {
        const std::ptrdiff_t n = (static_cast<std::ptrdiff_t>(s.ny) * z + y) * s.nx;
        const int w = s.width;
        Places own;
        findPlaces(s, y, z, own);
        if (host.f != nullptr) {
            const bool characteristic = s.planes.kind != OpenPlaneKind::Copy;
            const bool opens = s.planesPending && !characteristic && withinPlanes(y, s.ny, w) &&
                               withinPlanes(z, s.nz, w);
            Places from = own;
            if (opens)
                findPlaces(s, innerCoordinate(y, s.ny, w), innerCoordinate(z, s.nz, w), from);
            for (int i = 0; i < kDirections; ++i) {
                float* const to = host.f + i * count + n;
                copyRow(to, own.at[codeOfDirection(i)], s.nx);
                if (!opens) continue;
                const float* const row = from.at[codeOfDirection(i)];
                copyRow(to + w + 1, row + w + 1, s.nx - 2 - 2 * w);
                to[w] = row[w + 1];
                to[s.nx - 1 - w] = row[s.nx - 2 - w];
            }
            if (s.planesPending && characteristic) {
                float* rows[kDirections];
                for (int i = 0; i < kDirections; ++i) {
                    rows[codeOfDirection(i)] = host.f + i * count + n;
                }
                sweeps_->fillOpenNodes(s, y, z, rows);
            }
        }
        if (host.fPost != nullptr) {
            for (int i = 0; i < kDirections; ++i) {
                if (!stepped()) {
                    copyRow(host.fPost + i * count + n, own.at[codeOfDirection(i)], s.nx);
                    continue;
                }
                // the neighbour in that direction finds the population at its own place, also beyond
                // the faces of the grid
                Places there;
                findPlaces(s, y + static_cast<int>(ey_cas1[i]), z + static_cast<int>(ez_cas1[i]),
                           there);
                copyRow(host.fPost + i * count + n,
                        there.at[codeOfDirection(i)] + static_cast<int>(ex_cas1[i]), s.nx);
            }
        }
        if (host.Sopt != nullptr) {
            copyRow(host.Sopt + n, s.sopt + rowStart(s, y, z, 1), s.nx);
        }
        if (host.rou != nullptr && host.ux != nullptr) {
            float* const rows[4] = {&host.rou[n].value, host.ux + n, host.uy + n, host.uz + n};
            sweeps_->fillMoments(s, y, z, 0, s.nx, rows);
        }
    });
}

}  // namespace drelt
