// Where texts are printed, and which of them verbosity 0 silences.
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "platform/check.h"
#include "platform/cuda_backend.h"
#include "platform/messages.h"
#include "support/message_of.h"

namespace drelt::test {
namespace {

class Messages : public testing::Test {
protected:
    void TearDown() override { setVerbosity(1); }

    // Standard output and standard error of `body`, joined by a bar.
    template <class Body>
    static std::string printed(Body&& body) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        body();
        std::fflush(stdout);
        const std::string out = testing::internal::GetCapturedStdout();
        return out + "|" + testing::internal::GetCapturedStderr();
    }
};

TEST_F(Messages, VerbosityZeroSilencesInformationButNoWarning) {
    const auto all = [] {
        inform("mass %.1f of %s\n", 0.5, "tail");
        warn("the tail is light");
    };
    EXPECT_EQ(printed(all), "mass 0.5 of tail\n|[warning] the tail is light\n");
    setVerbosity(0);
    EXPECT_EQ(printed(all), "|[warning] the tail is light\n");
    EXPECT_EQ(messageOf<std::invalid_argument>([] { setVerbosity(2); }),
              "setVerbosity: got 2; give 1 (everything) or 0 (warnings and errors only)");
    EXPECT_EQ(verbosity(), 0) << "a refused level changes nothing";
}

TEST_F(Messages, EnvironmentGivesTheFirstVerbosity) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto firstLevel = [] { std::exit(10 + verbosity()); };
    setenv("DRELT_VERBOSITY", "0", 1);
    EXPECT_EXIT(firstLevel(), testing::ExitedWithCode(10), "");
    setenv("DRELT_VERBOSITY", "1", 1);
    EXPECT_EXIT(firstLevel(), testing::ExitedWithCode(11), "");
    unsetenv("DRELT_VERBOSITY");
    EXPECT_EXIT(firstLevel(), testing::ExitedWithCode(11), "");
}

TEST_F(Messages, AWarningOfOneKeyIsPrintedOnce) {
    const auto twice = [] {
        warnOnce("first key", "one");
        warnOnce("first key", "two");
        warnOnce("second key", "three");
    };
    EXPECT_EQ(printed(twice), "|[warning] one\n[warning] three\n");
    EXPECT_EQ(printed(twice), "|");
}

TEST(RequireDevice, NamesTheIdsThatExist) {
    const int gpus = platform::gpu::deviceCount();
    const int devices = gpus > 0 ? gpus : 1;
    for (int id = platform::kHostDevice; id < devices; ++id) {
        EXPECT_NO_THROW(platform::requireDevice(id, "make_simulator")) << id;
    }
    for (const int id : {-2, devices, 4711}) {
        const std::string message = messageOf<std::invalid_argument>(
            [&] { platform::requireDevice(id, "make_simulator"); });
        const std::string start =
            "make_simulator: device id " + std::to_string(id) + " names no device; give 0";
        EXPECT_EQ(message.substr(0, start.size()), start);
        EXPECT_NE(message.find("or -1 for the host's threads"), std::string::npos) << message;
    }
}

}  // namespace
}  // namespace drelt::test
