#include "platform/linux/pulse/PulseCaptureBackend.h"

#include <algorithm>
#include <cmath>

#include "base/Error.h"
#include "sound/CapturedSound.h"
#include "sound/SoundTest.h"
#include "support/SoundPlayer.h"

namespace tessivox::testing {
namespace {

class PulseCaptureTest : public SoundTest {
protected:
    pulse::PulseCaptureBackend backend{loop, server.address()};
    CapturedSound sound;

    std::unique_ptr<audio::CaptureStream> openMicrophone(const std::string& uid, CapturedSound& sink) {
        return finish(loop, backend.openMicrophone(uid, sink));
    }
    std::unique_ptr<audio::CaptureStream> openSystemAudio(const std::string& name, CapturedSound& sink) {
        return finish(loop, backend.openSystemAudio(name, sink));
    }
    std::string refusalOf(base::Task<std::unique_ptr<audio::CaptureStream>> opening) {
        try {
            finish(loop, std::move(opening));
        } catch (const base::Error& error) {
            EXPECT_EQ(error.domain(), "pulse");
            return error.description();
        }
        return "not refused";
    }
    bool hears(const CapturedSound& sink, double seconds) {
        return runUntil(loop, [&] { return sink.seconds() >= seconds; });
    }
};

TEST_P(PulseCaptureTest, DeliversWhatTheMicrophoneHears) {
    const auto player = server.play("micfeed", {"sine", "440"});
    const auto stream = openMicrophone("mic", sound);
    ASSERT_TRUE(hears(sound, 1.5));
    EXPECT_EQ(sound.format(), (audio::AudioFormat{48000, 1}));
    // On a busy machine the player itself may stumble once.
    EXPECT_TRUE(runUntil(loop, [&] {
        const auto tone = measureTone(sound.newest(0, 500ms), 440);
        return tone.amplitude > 0.2 && tone.residual < tone.amplitude / 100;
    }));
}

TEST_P(PulseCaptureTest, KeepsTheSidesOfTheSystemsSoundApart) {
    const auto player = server.play("speakers", {"sine", "440", "880"});
    const auto stream = openSystemAudio("speakers.monitor", sound);
    ASSERT_TRUE(hears(sound, 1.5));
    EXPECT_EQ(sound.format(), (audio::AudioFormat{48000, 2}));
    EXPECT_NEAR(measureTone(sound.newest(0, 500ms), 440).amplitude, 0.25, 0.01);
    EXPECT_LT(measureTone(sound.newest(0, 500ms), 880).amplitude, 0.001);
    EXPECT_NEAR(measureTone(sound.newest(1, 500ms), 880).amplitude, 0.25, 0.01);
    EXPECT_LT(measureTone(sound.newest(1, 500ms), 440).amplitude, 0.001);
}

TEST_P(PulseCaptureTest, RefusesUnknownNamesAndTheWrongKindOfSource) {
    EXPECT_NE(refusalOf(backend.openMicrophone("nothing", sound)).find("not connected"), std::string::npos);
    EXPECT_NE(refusalOf(backend.openMicrophone("@DEFAULT_SOURCE@", sound)).find("not connected"), std::string::npos);
    EXPECT_NE(refusalOf(backend.openMicrophone("speakers.monitor", sound)).find("not a microphone"), std::string::npos);
    EXPECT_NE(refusalOf(backend.openSystemAudio("nothing.monitor", sound)).find("cannot be recorded"),
              std::string::npos);
    EXPECT_NE(refusalOf(backend.openSystemAudio("@DEFAULT_MONITOR@", sound)).find("cannot be recorded"),
              std::string::npos);
    EXPECT_NE(refusalOf(backend.openSystemAudio("mic", sound)).find("cannot be recorded"), std::string::npos);
    EXPECT_EQ(sound.seconds(), 0);
}

TEST_P(PulseCaptureTest, EndsWhenTheMicrophoneIsUnpluggedAndTakesNoOther) {
    server.loadModule({"module-remap-source", "master=speakers.monitor", "source_name=other"});
    const auto player = server.play("speakers", {"sine", "880"});
    const auto stream = openMicrophone("mic", sound);
    ASSERT_TRUE(hears(sound, 0.5));
    server.unloadModule(server.moduleWith("source_name=mic"));
    ASSERT_TRUE(runUntil(loop, [&] { return sound.reason.has_value(); }));
    EXPECT_NE(sound.reason->find("unplugged"), std::string::npos) << *sound.reason;
    EXPECT_LT(measureTone(sound.newest(0, 200ms), 880).amplitude, 0.001);
}

TEST_P(PulseCaptureTest, EndsWhenTheRecordedOutputGoesAndTakesNoMicrophone) {
    const auto player = server.play("micfeed", {"sine", "440"});
    const auto stream = openSystemAudio("speakers.monitor", sound);
    ASSERT_TRUE(hears(sound, 0.5));
    server.unloadModule(server.moduleWith("sink_name=speakers"));
    ASSERT_TRUE(runUntil(loop, [&] { return sound.reason.has_value(); }));
    EXPECT_LT(measureTone(sound.newest(0, 200ms), 440).amplitude, 0.001);
}

TEST_P(PulseCaptureTest, EndsWithTheServerAndOpensAgainAfterItsReturn) {
    CapturedSound second;
    auto stream = openMicrophone("mic", sound);
    ASSERT_TRUE(hears(sound, 0.3));
    server.kill();
    ASSERT_TRUE(runUntil(
        loop, [&] { return sound.reason.has_value(); }, 2s));
    EXPECT_NE(sound.reason->find("sound server has ended"), std::string::npos) << *sound.reason;
    EXPECT_NE(refusalOf(backend.openMicrophone("mic", sound)).find("No sound server"), std::string::npos);
    server.restart();
    stream = openMicrophone("mic", second);
    EXPECT_TRUE(hears(second, 0.3));
}

TEST_P(PulseCaptureTest, CallsNothingAfterItsEnd) {
    auto stream = openMicrophone("mic", sound);
    ASSERT_TRUE(hears(sound, 0.3));
    stream.reset();
    const double heard = sound.seconds();
    server.kill();
    runFor(loop, 100ms);
    EXPECT_EQ(sound.seconds(), heard);
    EXPECT_FALSE(sound.reason);
}

/// A microphone and the computer's sound that hear the same clicks.
class PulseAlignmentTest : public PulseCaptureTest {
protected:
    CapturedSound system;
    std::unique_ptr<audio::CaptureStream> microphoneStream;
    std::unique_ptr<audio::CaptureStream> systemStream;
    ChildProcess player;

    void SetUp() override {
        server.addRoom();
        player = server.play("room", {"clicks", "250"});
        microphoneStream = openMicrophone("roommic", sound);
        systemStream = openSystemAudio("room.monitor", system);
    }
    void stallMicrophone(bool isStalled) {
        if (GetParam() == SoundServerKind::pulseAudio) {
            server.run({"pactl", "suspend-source", "roommic", isStalled ? "1" : "0"});
        } else if (isStalled) {
            server.run({"pw-link", "-d", "roommic:capture_MONO", "Tessivox:input_MONO"});
        } else {
            server.run({"pw-link", "roommic:capture_MONO", "Tessivox:input_MONO"});
        }
    }
    /// Compares the clicks of the newest stretch of both.
    void expectAligned(base::Duration length, double limitSeconds) {
        const auto from = std::min(sound.end(), system.end()) - length;
        const auto left = findClicks(sound.channel(0, from, length), from);
        const auto right = findClicks(system.channel(0, from, length), from);
        ASSERT_GE(left.size() + 2, static_cast<std::size_t>(length / 250ms));
        ASSERT_EQ(left.size(), right.size());
        for (std::size_t index = 0; index < left.size(); ++index) {
            EXPECT_LT(std::abs(base::toSeconds(left[index] - right[index])), limitSeconds) << "click " << index;
        }
    }
};

TEST_P(PulseAlignmentTest, StampsBothSourcesWithTheSameClock) {
    ASSERT_TRUE(hears(sound, 4.5) && hears(system, 4.5));
    expectAligned(4s, 0.002);
    EXPECT_LT(sound.worstJoin(sound.end() - 3s), 1ms);
    EXPECT_LT(system.worstJoin(system.end() - 3s), 1ms);
}

TEST_P(PulseAlignmentTest, KeepsTheClockThroughAStall) {
    ASSERT_TRUE(hears(sound, 1));
    stallMicrophone(true);
    ASSERT_TRUE(hears(system, system.seconds() + 2));
    const double before = sound.seconds();
    stallMicrophone(false);
    ASSERT_TRUE(hears(sound, before + 3));
    EXPECT_GT(sound.worstJoin(sound.end() - 10s), 1s) << "there was no stall";
    expectAligned(2900ms, 0.005);
}

TESSIVOX_WITH_BOTH_SERVERS(PulseAlignmentTest);

TEST_P(PulseCaptureTest, StampsAClickWithTheTimeItWasPlayed) {
    auto player = server.play("speakers", {"clicks", "250"});
    const auto stream = openSystemAudio("speakers.monitor", sound);
    ASSERT_TRUE(hears(sound, 3.5));
    const base::HostTime origin(base::Duration(std::stoll(player.ask("origin"))));
    const auto from = sound.end() - 3s;
    std::vector<double> errors;
    for (const auto click : findClicks(sound.channel(0, from, 3s), from)) {
        errors.push_back(std::remainder(base::toSeconds(click - origin), 0.25));
    }
    ASSERT_GE(errors.size(), 10U);
    std::ranges::sort(errors);
    // PipeWire's own word for the time of playing is only good to a few cycles.
    const double limit = GetParam() == SoundServerKind::pulseAudio ? 0.002 : 0.02;
    EXPECT_LT(std::abs(errors[errors.size() / 2]), limit);
    EXPECT_LT(errors.back() - errors.front(), 0.002);
}

TESSIVOX_WITH_BOTH_SERVERS(PulseCaptureTest);

}  // namespace
}  // namespace tessivox::testing
