#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <optional>
#include <thread>
#include <vector>

#include "audio/CafFile.h"
#include "audio/OriginEstimator.h"
#include "audio/StereoAudioWriter.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/SwrConverter.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "support/DecodeAudio.h"
#include "support/TestFolder.h"
#include "support/TurnLoop.h"

namespace tessivox {
namespace {

using namespace std::chrono_literals;

constexpr int kRate = 48000;

/// The real loop and queues, but a host clock that the test moves, so that half a minute of sound takes a moment and
/// still has an exact length.
class FastRuntime final : public base::Runtime, public base::Scheduler {
public:
    explicit FastRuntime(posix::EventLoop& loop) : loop_(loop) {}

    base::Scheduler& scheduler() override { return *this; }
    std::unique_ptr<base::TaskQueue> makeQueue(std::string label, base::QueuePriority priority) override {
        return loop_.makeQueue(std::move(label), priority);
    }
    base::HostTime now() const override { return base::HostTime(base::Duration(nanos_.load())); }
    base::WallTime wallNow() const override { return loop_.wallNow(); }
    void post(std::function<void()> work) override { loop_.post(std::move(work)); }
    base::Timer after(base::Duration delay, std::function<void()> handler) override {
        return loop_.after(delay, std::move(handler));
    }
    base::Timer every(base::Duration interval, std::function<void()> handler) override {
        return loop_.every(interval, std::move(handler));
    }
    std::unique_ptr<base::WakeSource> source(std::function<void()> drain) override {
        return loop_.source(std::move(drain));
    }

    void advance(base::Duration span) {
        nanos_ += span.count();
        nanos_.notify_all();
    }
    /// Any thread.
    void waitFor(base::HostTime time) const {
        for (auto seen = nanos_.load(); seen < time.time_since_epoch().count(); seen = nanos_.load()) nanos_.wait(seen);
    }

private:
    posix::EventLoop& loop_;
    std::atomic<std::int64_t> nanos_ = base::Duration(1h).count();
};

/// A capture thread: hands on a tone in buffers of one size as soon as the clock has passed them.
class Tone {
public:
    using Sink = std::function<void(const audio::AudioBuffer&, base::HostTime)>;

    Tone(const FastRuntime& clock, audio::AudioFormat format, std::size_t bufferFrames, base::Duration length,
         Sink sink)
        : thread_([=, start = clock.now(), &clock] {
              const auto channels = static_cast<std::size_t>(format.channels);
              std::vector<float> samples(bufferFrames * channels);
              const auto total = static_cast<std::size_t>(base::toSeconds(length) * format.sampleRate);
              for (std::size_t first = 0; first + bufferFrames <= total; first += bufferFrames) {
                  for (std::size_t index = 0; index < samples.size(); ++index) {
                      const auto seconds = static_cast<double>(first + index / channels) / format.sampleRate;
                      samples[index] = static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 440 * seconds));
                  }
                  const auto timeOf = audio::OriginEstimator::timeOf;
                  clock.waitFor(timeOf(start, first + bufferFrames, format.sampleRate));
                  sink({format, samples}, timeOf(start, first, format.sampleRate));
              }
          }) {}

private:
    std::jthread thread_;
};

double rootMeanSquare(const std::vector<float>& samples) {
    double sum = 0;
    for (const auto sample : samples) sum += static_cast<double>(sample) * static_cast<double>(sample);
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

struct AudioPathTest : ::testing::Test {
    posix::EventLoop loop;
    FastRuntime runtime{loop};
    posix::PosixFiles files{loop};
    ffmpeg::SwrConverterFactory converters;
    ffmpeg::AacEncoderFactory encoders;
    testing::TestFolder made;
    const std::filesystem::path folder = made.path();
    std::filesystem::path incomplete = folder / "Incomplete";
    std::optional<audio::StereoAudioWriter> writer;
    base::Subscription listening;

    AudioPathTest() {
        writer.emplace(runtime, files, converters, encoders, incomplete);
        listening = writer->onProblem.observe([](const std::string& problem) { ADD_FAILURE() << problem; });
    }

    std::filesystem::path outputOf(const std::string& name) const { return folder / (name + ".m4a"); }
    std::filesystem::path temporaryOf(const std::string& name) const {
        return incomplete / ("stereo_" + name + ".caf");
    }

    struct Pause {
        base::Duration begin, end;
    };
    /// Starts a recording and feeds it from two threads, never more than five seconds ahead of the temporary file.
    void record(const std::string& name, base::Duration length, bool separateTracks, std::vector<Pause> pauses = {}) {
        writer->start(outputOf(name), kRate, separateTracks, 128000);
        const auto toMicrophone = [this](const auto& buffer, auto time) { writer->appendMicrophone(buffer, time); };
        const auto toSystem = [this](const auto& buffer, auto time) { writer->appendSystem(buffer, time); };
        const Tone microphone(runtime, {kRate, 1}, 480, length, toMicrophone);
        const Tone system(runtime, {44100, 2}, 1024, length, toSystem);
        base::Duration recorded{};
        bool isPaused = false;
        for (base::Duration at{}; at < length; at += 100ms) {
            for (const auto& pause : pauses) {
                if (at == pause.begin) writer->pause();
                if (at == pause.end) writer->resume();
                if (at == pause.begin || at == pause.end) isPaused = at == pause.begin;
            }
            runtime.advance(100ms);
            if (!isPaused) recorded += 100ms;
            ASSERT_TRUE(testing::runUntil(
                loop, [&] { return recorded - written(name) <= 5s; }, 60s))
                << "it stalls";
        }
    }
    base::Duration written(const std::string& name) const {
        const auto bytes = std::filesystem::file_size(temporaryOf(name)) - audio::CafWriter::kHeaderSize;
        return base::fromSeconds(static_cast<double>(bytes) / (2 * sizeof(float)) / kRate);
    }
    void stopAndExpect(const std::string& name, base::Duration length, bool separateTracks) {
        const auto outcome = testing::finish(loop, writer->stop(), 60s);
        const auto* saved = std::get_if<audio::Saved>(&outcome);
        ASSERT_TRUE(saved);
        EXPECT_EQ(saved->missingSeconds, 0);
        const auto frames = static_cast<std::size_t>(base::toSeconds(length) * kRate);
        const auto decoded = testing::decodeAudio(saved->url);
        EXPECT_EQ(decoded.channels, 2);
        EXPECT_EQ(decoded.frames(), frames);
        EXPECT_NEAR(rootMeanSquare(decoded.channel(0)), 0.354, 0.02);
        EXPECT_NEAR(rootMeanSquare(decoded.channel(1)), 0.354, 0.02);
        if (!separateTracks) return;
        EXPECT_EQ(testing::decodeAudio(folder / (name + "_mic.m4a")).frames(), frames);
        EXPECT_EQ(testing::decodeAudio(folder / (name + "_system.m4a")).frames(), frames);
    }
};

TEST_F(AudioPathTest, TwoCaptureThreadsAndPausesGiveRecordingsOfExactLengthOneAfterTheOther) {
    record("first", 30s, false, {{4s, 5500ms}, {15s, 17s}});
    stopAndExpect("first", 26500ms, false);
    record("second", 8s, true);
    stopAndExpect("second", 8s, true);
    record("third", 2500ms, false);
    stopAndExpect("third", 2500ms, false);
}

TEST_F(AudioPathTest, AWriterThatGoesWhileItRecordsLeavesTheTemporaryFile) {
    record("talk", 12s, true);
    writer.reset();
    audio::CafReader reader(files.open(temporaryOf("talk"), base::FileAccess::read));
    EXPECT_GE(reader.frames(), 7U * kRate);
    EXPECT_FALSE(files.exists(outputOf("talk")));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1) << "half-made files stay";
}

TEST_F(AudioPathTest, AWriterThatGoesWhileItSavesLeavesTheRecordingInOneFormOrTheOther) {
    record("talk", 12s, false);
    {
        base::TaskScope scope(loop);
        std::optional<audio::RecordingStopOutcome> outcome;
        std::exception_ptr error;
        scope.start(testing::keepResult(writer->stop(), outcome, error));
        loop.dispatch();
    }
    writer.reset();
    if (files.exists(outputOf("talk"))) {
        EXPECT_EQ(testing::decodeAudio(outputOf("talk")).frames(), 12U * kRate);
    } else {
        audio::CafReader reader(files.open(temporaryOf("talk"), base::FileAccess::read));
        EXPECT_GE(reader.frames(), 7U * kRate);
    }
}

}  // namespace
}  // namespace tessivox
