#include "platform/linux/pulse/InputStreams.h"

#include <gtest/gtest.h>

#include <vector>

namespace tessivox::pulse {
namespace {

constexpr std::uint32_t kMicrophone = 0;
constexpr std::uint32_t kHeadset = 3;
constexpr std::uint32_t kMonitor = 7;

Source source(std::uint32_t index, bool isMonitor) {
    Source result;
    result.index = index;
    result.isMonitor = isMonitor;
    return result;
}

const std::vector<Source> kSources{source(kMicrophone, false), source(kHeadset, false), source(kMonitor, true)};

SourceOutput stream(std::uint32_t index, std::uint32_t from = kMicrophone) {
    SourceOutput result;
    result.index = index;
    result.client = 100 + index;
    result.source = from;
    return result;
}

std::vector<std::uint32_t> numbers(const std::vector<SourceOutput>& streams) {
    std::vector<std::uint32_t> result;
    for (const auto& one : microphoneStreams(streams, kSources)) result.push_back(one.index);
    return result;
}

TEST(InputStreamsTest, KeepsStreamsOfProgramsFromAnyMicrophoneInTheServersOrder) {
    EXPECT_EQ(numbers({stream(5), stream(2, kHeadset), stream(9)}), (std::vector<std::uint32_t>{5, 2, 9}));
}

TEST(InputStreamsTest, LeavesOutWhatIsNoProgramTakingSoundFromAMicrophone) {
    auto ofServer = stream(1);
    ofServer.client = SourceOutput::kNone;
    auto paused = stream(2);
    paused.isCorked = true;
    const auto unlinked = stream(3, SourceOutput::kNone);
    const auto ofMonitor = stream(4, kMonitor);
    auto meter = stream(5);
    meter.takesPeaks = true;
    auto ofSink = stream(6);
    ofSink.takesMonitor = true;
    const auto ofLostSource = stream(7, 42);
    EXPECT_EQ(numbers({ofServer, paused, unlinked, ofMonitor, meter, ofSink, ofLostSource, stream(8)}),
              std::vector<std::uint32_t>{8});
}

TEST(InputStreamsTest, AsksForSourcesAgainOnlyWhenAStreamThatMayCountNamesAnUnknownOne) {
    auto paused = stream(1, 42);
    paused.isCorked = true;
    EXPECT_FALSE(isSourceMissing({paused, stream(2, SourceOutput::kNone), stream(3)}, kSources));
    EXPECT_TRUE(isSourceMissing({stream(3), stream(4, 42)}, kSources));
}

TEST(InputStreamsTest, JoinsAStreamWithItsConnectionButBelievesTheKernelsWordOfTheConnectionAlone) {
    Declaration stated;
    stated.applicationName = "pw-record";
    stated.securityPID = 1;
    stated.portalID = "org.example.Forged";
    Declaration connection;
    connection.pid = 4711;
    connection.securityPID = 4711;
    connection.binary = "pw-cat";
    connection.applicationName = "pw-cat";
    connection.applicationID = "org.example.Recorder";
    const auto owner = joined(stated, connection);
    EXPECT_EQ(owner.pid, 4711);
    EXPECT_EQ(owner.securityPID, 4711);
    EXPECT_EQ(owner.binary, "pw-cat");
    EXPECT_EQ(owner.applicationName, "pw-record");
    EXPECT_EQ(owner.applicationID, "org.example.Recorder");
    EXPECT_EQ(owner.portalID, "");
}

}  // namespace
}  // namespace tessivox::pulse
