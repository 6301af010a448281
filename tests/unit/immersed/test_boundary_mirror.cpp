// The device mirror of a boundary: what it uploads, downloads and frees.
#include <gtest/gtest.h>

#include <memory>

#include "immersed/boundary_fixture.h"
#include "platform/runtime.h"
#include "support/device.h"

namespace drelt {
namespace {

using test::fetched;
using test::HostBoundary;
using test::store;

// The device's record, copied back as bytes, because its list belongs to another record.
class Image {
public:
    explicit Image(const IBBoundaryMemMgr& m) {
        checkCudaErrors(
            cudaMemcpy(bytes_, m.mllaboundary_gpu, sizeof bytes_, cudaMemcpyDeviceToHost));
    }
    const mlLagrangeBoundary& record() const {
        return *reinterpret_cast<const mlLagrangeBoundary*>(bytes_);
    }

private:
    alignas(mlLagrangeBoundary) unsigned char bytes_[sizeof(mlLagrangeBoundary)];
};

void expectPatched(const IBBoundaryMemMgr& m) {
    const Image image(m);
    const mlLagrangeBoundary& record = image.record();
    const void* const given[] = {
        record.coordx,     record.coordy,  record.coordz,     record.normalx,
        record.normaly,    record.normalz, record.coordInitx, record.coordInity,
        record.coordInitz, record.forcex,  record.forcey,     record.forcez,
        record.ux,         record.uy,      record.uz,         record.rou};
    const void* const wanted[] = {
        m.coordx_dev,     m.coordy_dev,  m.coordz_dev,     m.normalx_dev,
        m.normaly_dev,    m.normalz_dev, m.coordInitx_dev, m.coordInity_dev,
        m.coordInitz_dev, m.forcex_dev,  m.forcey_dev,     m.forcez_dev,
        m.ux_dev,         m.uy_dev,      m.uz_dev,         m.den_dev};
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(given[i], wanted[i]) << i;
        EXPECT_NE(wanted[i], nullptr) << i;
        for (int j = 0; j < i; ++j) EXPECT_NE(wanted[i], wanted[j]);
    }
}

TEST(BoundaryMirror, UploadCarriesEveryArrayAndPatchesEveryPointer) {
    HostBoundary boundary(3);
    mlLagrangeBoundary& host = boundary.host();
    float* const floats[] = {host.coordx,     host.coordy,  host.coordz,     host.normalx,
                             host.normaly,    host.normalz, host.coordInitx, host.coordInity,
                             host.coordInitz, host.ux,      host.uy,         host.uz};
    double* const doubles[] = {host.forcex, host.forcey, host.forcez};
    for (int a = 0; a < 12; ++a) floats[a][2] = static_cast<float>(a + 1);
    for (int a = 0; a < 3; ++a) doubles[a][2] = a + 20.0;
    host.rou[2].value = 30.0f;
    boundary.upload();
    expectPatched(boundary.manager());
    const Image image(boundary.manager());
    const mlLagrangeBoundary& there = image.record();
    const float* const floatsThere[] = {there.coordx,     there.coordy,     there.coordz,
                                        there.normalx,    there.normaly,    there.normalz,
                                        there.coordInitx, there.coordInity, there.coordInitz,
                                        there.ux,         there.uy,         there.uz};
    const double* const doublesThere[] = {there.forcex, there.forcey, there.forcez};
    for (int a = 0; a < 12; ++a)
        EXPECT_EQ(fetched(floatsThere[a], 3)[2], static_cast<float>(a + 1)) << a;
    for (int a = 0; a < 3; ++a) EXPECT_EQ(fetched(doublesThere[a], 3)[2], a + 20.0) << a;
    EXPECT_EQ(fetched(there.rou, 3)[2].value, 30.0f);
    EXPECT_EQ(there.count, 3);

    boundary.manager().setScale(20.0f, 2.0f, 3.0f, 0.1f);
    const Image scaled(boundary.manager());
    EXPECT_EQ(scaled.record().N, 20.0f);
    EXPECT_EQ(scaled.record().l0p, 2.0f);
    EXPECT_EQ(boundary.manager().u0p, 3.0f);
    EXPECT_EQ(boundary.manager().u0k, 0.1f);
}

TEST(BoundaryMirror, DownloadLeavesInitialPositionsAndDensities) {
    HostBoundary boundary(2);
    const Image image(boundary.manager());
    const mlLagrangeBoundary& there = image.record();
    float* const back[] = {there.ux,     there.uy,      there.uz,      there.coordx, there.coordy,
                           there.coordz, there.normalx, there.normaly, there.normalz};
    for (int a = 0; a < 9; ++a) store(back[a], 1, static_cast<float>(a + 1));
    store(there.forcex, 1, 11.0);
    store(there.forcey, 1, 12.0);
    store(there.forcez, 1, 13.0);
    for (float* array : {there.coordInitx, there.coordInity, there.coordInitz}) {
        store(array, 1, 50.0f);
    }
    store(there.rou, 1, mlDensity<float>{50.0f});
    boundary.download();
    const mlLagrangeBoundary& host = boundary.host();
    const float* const here[] = {host.ux,     host.uy,      host.uz,      host.coordx, host.coordy,
                                 host.coordz, host.normalx, host.normaly, host.normalz};
    for (int a = 0; a < 9; ++a) EXPECT_EQ(here[a][1], static_cast<float>(a + 1)) << a;
    EXPECT_EQ(host.forcex[1], 11.0);
    EXPECT_EQ(host.forcey[1], 12.0);
    EXPECT_EQ(host.forcez[1], 13.0);
    EXPECT_EQ(host.coordInitx[1] + host.coordInity[1] + host.coordInitz[1], 0.0f);
    EXPECT_EQ(host.rou[1].value, 1.0f);
    EXPECT_EQ(boundary.manager().mllagbndHost->coordx, boundary.manager().coordx_dev);
    EXPECT_EQ(boundary.manager().mllagbndHost->count, 2);
}

TEST(BoundaryMirror, NoSamplesAreAValidNumber) {
    HostBoundary boundary(0);
    boundary.upload();
    expectPatched(boundary.manager());
    boundary.download();
    EXPECT_EQ(boundary.manager().mllagbndHost->count, 0);
}

TEST(BoundaryMirror, MirrorsComeAndGoWithoutLeaks) {
    const std::size_t before = platform::deviceBytesInUse();
    {
        HostBoundary boundary(1000);
        const std::size_t one = platform::deviceBytesInUse();
        EXPECT_EQ(one - before, sizeof(mlLagrangeBoundary) + 1000 * (13 * 4 + 3 * 8));
        boundary.manager().allocate();
        EXPECT_EQ(platform::deviceBytesInUse(), one);
        boundary.upload();
        expectPatched(boundary.manager());
        boundary.host().reservedList.assign(100, 1);  // the host record keeps its buffer
        boundary.upload();
        boundary.download();
        EXPECT_TRUE(boundary.manager().mllagbndHost->reservedList.empty());
        boundary.manager().free();
        EXPECT_EQ(platform::deviceBytesInUse(), before);
        boundary.manager().free();
        EXPECT_EQ(boundary.manager().mllaboundary_gpu, nullptr);
        EXPECT_EQ(boundary.manager().den_dev, nullptr);
        boundary.manager().allocate();
        EXPECT_EQ(boundary.manager().mllagbndHost->reservedOne, 1.0f);
        EXPECT_EQ(boundary.manager().mllagbndHost->coordx, nullptr);
    }
    EXPECT_EQ(platform::deviceBytesInUse(), before);
}

TEST(BoundaryMirror, FailuresQuoteTheStatement) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked child cannot use a GPU
    mlLagrangeBoundary record{};
    record.count = 4;
    const auto failing = [&](int call) {
        IBBoundaryMemMgr manager(test::device());
        manager.bindHostRecord(&record);
        platform::failNthCall(call, cudaErrorMemoryAllocation);
        manager.allocate();
    };
    // The calls are: select, select in free, the record, ux.
    EXPECT_EXIT(
        failing(4), testing::ExitedWithCode(1),
        "CUDA error at supplement/IBBoundaryMemMgr:[0-9]+ code=2\\(cudaErrorMemoryAllocation\\) "
        "\"cudaMalloc\\(&ux_dev, mllaboundary->count \\* sizeof\\(float\\)\\)\" \n");
    EXPECT_EXIT(
        {
            HostBoundary boundary(4);
            platform::failNthCall(2, cudaErrorIllegalAddress);
            boundary.manager().free();
        },
        testing::ExitedWithCode(1), "\"cudaFree\\(mllaboundary_gpu\\)\"");
    EXPECT_EXIT(
        {
            HostBoundary boundary(4);
            platform::failNthCall(19, cudaErrorIllegalAddress);
            boundary.upload();
        },
        testing::ExitedWithCode(1),
        "\"cudaMemcpy\\(&\\(mllaboundary_gpu->ux\\), &ux_dev, sizeof\\(ux_dev\\), "
        "cudaMemcpyHostToDevice\\)\"");
}

}  // namespace
}  // namespace drelt
