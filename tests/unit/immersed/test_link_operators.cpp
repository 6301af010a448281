// Forces on samples become wrenches on links, and the motion of links becomes sample velocities.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "SkeletonDynamics/skSystem_GPU.h"
#include "immersed/boundary_fixture.h"
#include "platform/runtime.h"
#include "support/device.h"
#include "support/vectors.h"

namespace drelt {
namespace {

using test::DeviceArray;
using test::HostBoundary;
using test::joined;
using test::VectorCase;
using LinkRecords = test::Array<skLinkData>;
using Wrenches = test::Array<LinkWrench>;

LinkRecords linksOf(const VectorCase& given) {
    LinkRecords links(static_cast<std::size_t>(given.integer("links")));
    const auto transforms = given.array<double>("in_transform");
    for (std::size_t k = 0; k < links.size(); ++k) {
        for (int row = 0; row < 4; ++row)
            for (int column = 0; column < 4; ++column)
                links[k].transform.matrix()(row, column) = transforms[16 * k + 4 * row + column];
        links[k].inverse = links[k].transform.inverse();
        links[k].velocity.setZero();
        links[k].torque.setZero();
        links[k].force.setZero();
        links[k].isWorld = 0.0;
    }
    return links;
}

LinkRecords restingLinks(int count) {
    LinkRecords links(static_cast<std::size_t>(count));
    for (skLinkData& link : links) {
        link.transform = link.inverse = Eigen::Isometry3d::Identity();
        link.velocity.setZero();
        link.torque.setZero();
        link.force.setZero();
        link.isWorld = 0.0;
    }
    return links;
}

struct LinkOperators : testing::Test {
    void SetUp() override { ASSERT_TRUE(test::selectDevice()); }
    LinkForceReduction reduction;
};

TEST_F(LinkOperators, WrenchesOfTheReferenceCase) {
    const VectorCase given("link_wrenches");
    LinkRecords links = linksOf(given);
    const auto old = given.array<double>("in_old_wrenches");
    for (std::size_t k = 0; k < links.size(); ++k) {
        links[k].torque = Eigen::Map<const Eigen::Vector3d>(&old[6 * k]);
        links[k].force = Eigen::Map<const Eigen::Vector3d>(&old[6 * k + 3]);
    }
    const int samples = given.integer("samples");
    HostBoundary boundary(samples);
    mlLagrangeBoundary& host = boundary.host();
    test::split(given.array<float>("in_coord"), host.coordx, host.coordy, host.coordz, samples);
    test::split(given.array<double>("in_force"), host.forcex, host.forcey, host.forcez, samples);
    host.sampleArea = static_cast<float>(given.scalar("sampleArea"));
    boundary.upload();
    DeviceArray<int> labels(given.array<std::int32_t>("in_labels"));
    DeviceArray<LinkWrench> perSampleThere(Wrenches(static_cast<std::size_t>(samples)));
    DeviceArray<skLinkData> linksThere(links);
    reduction.reduce(linksThere.data(), boundary.device(), labels.data(), perSampleThere.data(),
                     static_cast<int>(links.size()), samples,
                     static_cast<float>(given.scalar("scale")));
    const Wrenches wrenches = perSampleThere.values();
    links = linksThere.values();
    const auto perSample = given.array<double>("out_sample_wrenches");
    for (std::size_t i = 0; i < perSample.size(); ++i) {
        const LinkWrench expected = Eigen::Map<const LinkWrench>(&perSample[i / 6 * 6]);
        EXPECT_NEAR(wrenches[i / 6](i % 6), expected(i % 6), 1e-12 * expected.norm()) << i;
    }
    const auto perLink = given.array<double>("out_wrenches");
    for (std::size_t k = 0; k < links.size(); ++k) {
        LinkWrench actual;
        actual << links[k].torque, links[k].force;
        const LinkWrench expected = Eigen::Map<const LinkWrench>(&perLink[6 * k]);
        EXPECT_LE((actual - expected).norm(), 1e-12 * expected.norm()) << k;
    }
}

// Unit forces along x at the origin: the reaction on a link is minus the number of its samples.
struct UnitForces {
    explicit UnitForces(const std::vector<int>& sampleLabels)
        : labels(sampleLabels),
          boundary(static_cast<int>(sampleLabels.size())),
          wrenches(Wrenches(sampleLabels.size())) {
        for (int i = 0; i < boundary.count(); ++i) boundary.host().forcex[i] = 1.0;
        boundary.host().sampleArea = 1.0f;
        boundary.upload();
    }
    std::vector<double> reduced(LinkForceReduction& reduction, LinkRecords& links) {
        DeviceArray<skLinkData> there(links);
        reduction.reduce(there.data(), boundary.device(), labels.data(), wrenches.data(),
                         static_cast<int>(links.size()), boundary.count(), 1.0f);
        links = there.values();
        std::vector<double> forces;
        for (const skLinkData& link : links) forces.push_back(link.force.x());
        return forces;
    }
    DeviceArray<int> labels;
    HostBoundary boundary;
    DeviceArray<LinkWrench> wrenches;
};

TEST_F(LinkOperators, LinksWithoutSamplesKeepTheirWrench) {
    LinkRecords links = restingLinks(5);
    links[1].force.x() = 7.0;
    UnitForces most({2, 2, 2, 3});
    EXPECT_EQ(most.reduced(reduction, links), (std::vector<double>{0, 7, -3, -1, 0}));
    UnitForces none({});
    EXPECT_EQ(none.reduced(reduction, links), (std::vector<double>{0, 7, -3, -1, 0}));
    UnitForces fewer({1});  // nothing from before must remain in the buffers
    EXPECT_EQ(fewer.reduced(reduction, links), (std::vector<double>{0, -1, -3, -1, 0}));
}

TEST_F(LinkOperators, OnlyNeighbouringLabelsAreMerged) {
    LinkRecords links = restingLinks(3);
    UnitForces runs({1, 1, 2, 1, 1, 1});
    EXPECT_EQ(runs.reduced(reduction, links), (std::vector<double>{0, -3, -1}));
    UnitForces manyRuns({1, 2, 1, 2, 1, 2, 1, 2});  // more runs than links: the first three count
    EXPECT_EQ(manyRuns.reduced(reduction, links), (std::vector<double>{0, -1, -1}));
}

TEST_F(LinkOperators, BadLabelsAreReportedAndReachNoLink) {
    LinkRecords links = restingLinks(3);
    UnitForces bad({0, 0, -5, 1, 2, 3, 400});
    testing::internal::CaptureStdout();
    const auto forces = bad.reduced(reduction, links);
    std::string expected;
    for (int i = 0; i < 5; ++i) expected += "LinkIdx error!!\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
    EXPECT_EQ(forces, (std::vector<double>{0, -1, 0})) << "link 2 is the fifth run of three";
    EXPECT_EQ(bad.wrenches.values()[0](3), -1.0) << "label 0 is read as it stands";
}

TEST_F(LinkOperators, BuffersAreKeptAndFreed) {
    LinkRecords links = restingLinks(4);
    UnitForces forces({1, 1, 3});
    const std::size_t before = platform::deviceBytesInUse();
    {
        LinkForceReduction own;
        forces.reduced(own, links);
        const std::size_t inUse = platform::deviceBytesInUse();
        EXPECT_GT(inUse, before);
        forces.reduced(own, links);
        EXPECT_EQ(platform::deviceBytesInUse(), inUse);
    }
    EXPECT_EQ(platform::deviceBytesInUse(), before);
}

TEST_F(LinkOperators, FailedLaunchesNameTheirLines) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a forked child has no OpenMP threads
    const auto failing = [](int call) {
        test::selectDevice();
        LinkRecords links = restingLinks(2);
        UnitForces forces({1});
        DeviceArray<skLinkData> there(links);
        LinkForceReduction own;
        const auto reduce = [&] {
            own.reduce(there.data(), forces.boundary.device(), forces.labels.data(),
                       forces.wrenches.data(), 2, 1, 1.0f);
        };
        reduce();
        platform::failNthCall(call, cudaErrorLaunchFailure);
        reduce();
    };
    const char* const expected[] = {
        "54 code=719\\(cudaErrorLaunchFailure\\) \"cudaGetLastError\\(\\)\"",
        "55 code=719\\(cudaErrorLaunchFailure\\) \"cudaDeviceSynchronize", "",
        "67 code=719.*\"cudaGetLastError\\(\\)\"", "68 code=719.*\"cudaDeviceSynchronize\\(\\)\""};
    for (const int call : {1, 2, 4, 5}) {
        EXPECT_EXIT(
            failing(call), testing::ExitedWithCode(1),
            std::string("CUDA error at SkeletonDynamics/skSystem_GPU:") + expected[call - 1]);
    }
}

class SampleVelocities : public testing::TestWithParam<const char*> {};

TEST_P(SampleVelocities, OfTheReferenceCase) {
    ASSERT_TRUE(test::selectDevice());
    const VectorCase given(GetParam());
    LinkRecords links = linksOf(given);
    const auto velocity = given.array<double>("in_velocity");
    const auto isWorld = given.array<double>("in_isWorld");
    for (std::size_t k = 0; k < links.size(); ++k) {
        links[k].velocity = Eigen::Map<const LinkWrench>(&velocity[6 * k]);
        links[k].isWorld = isWorld[k];
    }
    const int samples = given.integer("samples");
    HostBoundary boundary(samples);
    mlLagrangeBoundary& host = boundary.host();
    test::split(given.array<float>("in_coord"), host.coordx, host.coordy, host.coordz, samples);
    boundary.upload();
    DeviceArray<int> labels(given.array<std::int32_t>("in_labels"));
    DeviceArray<skLinkData> linksThere(links);
    updateSampleVel(boundary.device(), labels.data(), linksThere.data(),
                    given.integer("frameIndex"), given.integer("referenceIndex"), samples);
    boundary.download();
    const auto expected = given.array<double>("out_vel");
    const auto actual = joined(host.ux, host.uy, host.uz, samples);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(actual[i], static_cast<float>(expected[i]), 1e-7 * std::fabs(expected[i])) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, SampleVelocities,
                         testing::Values("sample_velocity_fixed", "sample_velocity_live",
                                         "sample_velocity_other_reference",
                                         "sample_velocity_turning_frame"));

TEST_F(LinkOperators, SamplesAtRestInAFrameThatMovesWithThem) {
    LinkRecords links = restingLinks(4);
    links[0].isWorld = 1.0;
    links[1].transform = Eigen::Translation3d(1.0, 2.0, 3.0) *
                         Eigen::AngleAxisd(0.7, Eigen::Vector3d(1.0, 1.0, 0.3).normalized());
    links[1].inverse = links[1].transform.inverse();
    const Eigen::Vector3d drift(0.3, -0.2, 0.9);
    links[1].velocity.tail<3>() = links[1].transform.linear().transpose() * drift;
    links[3].transform.translation() = links[1].transform.translation();  // the frame does not turn
    links[3].inverse = links[3].transform.inverse();
    links[3].velocity.tail<3>() = drift;
    HostBoundary boundary(2);
    boundary.host().coordx[1] = 5.0f;
    boundary.host().ux[0] = boundary.host().ux[1] = 9.0f;
    boundary.upload();
    DeviceArray<int> labels(
        std::vector<int>{1, 3});  // one sample of the base link and one of the frame itself
    DeviceArray<skLinkData> linksThere(links);
    updateSampleVel(boundary.device(), labels.data(), linksThere.data(), 3, 0, 2);
    boundary.download();
    EXPECT_NEAR(boundary.host().ux[0], 0.0, 1e-15);
    EXPECT_NEAR(boundary.host().uy[0], 0.0, 1e-15);
    EXPECT_NEAR(boundary.host().uz[0], 0.0, 1e-15);
    EXPECT_EQ(boundary.host().ux[1], 0.0f);
}

}  // namespace
}  // namespace drelt
