#include "audio/StreamMixer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

namespace tessivox::audio {
namespace {

using namespace std::chrono_literals;

constexpr int kRate = 48000;
const base::HostTime kStart{1000s};

using Sound = std::function<double(double seconds)>;

Sound sine(double hertz, double amplitude = 0.25) {
    return [=](double seconds) { return amplitude * std::sin(2 * std::numbers::pi * hertz * seconds); };
}
Sound sum(Sound first, Sound second) {
    return [=](double seconds) { return first(seconds) + second(seconds); };
}

/// What the mixer hands on, laid out from kStart.
class Output final : public CaptureSink {
public:
    std::vector<double> samples;
    base::Duration worstJoin{};

    void onAudio(const AudioBuffer& buffer, base::HostTime time) override {
        if (samples.empty()) samples.resize(frameOf(time));
        const auto end = kStart + base::fromSeconds(static_cast<double>(samples.size()) / kRate);
        worstJoin = std::max(worstJoin, std::chrono::abs(time - end));
        samples.resize(frameOf(time));
        for (std::size_t frame = 0; frame < buffer.frames(); ++frame) {
            EXPECT_EQ(buffer.samples[2 * frame], -buffer.samples[2 * frame + 1]);
            samples.push_back(static_cast<double>(buffer.samples[2 * frame]));
        }
    }
    void onEnded(const std::string&) override {}

    /// The largest difference from a sound in a span of time.
    double errorAgainst(const Sound& sound, double from, double to) const {
        double worst = to * kRate > static_cast<double>(samples.size()) ? 9 : 0;
        for (auto frame = static_cast<std::size_t>(from * kRate); frame < std::min(samples.size(), at(to)); ++frame) {
            worst = std::max(worst, std::abs(samples[frame] - sound(static_cast<double>(frame) / kRate)));
        }
        return worst;
    }
    double seconds() const { return static_cast<double>(samples.size()) / kRate; }

private:
    static std::size_t at(double seconds) { return static_cast<std::size_t>(std::llround(seconds * kRate)); }
    static std::size_t frameOf(base::HostTime time) { return at(base::toSeconds(time - kStart)); }
};

/// A stream that delivers a sound (the right side inverted) in buffers of its own size.
class Stream {
public:
    Stream(CaptureSink& sink, Sound sound, std::size_t size, double from = 0)
        : sink_(&sink), sound_(std::move(sound)), size_(size), frame_(std::llround(from * kRate)) {}

    /// Delivers what has become complete at a time.
    void deliverUntil(double seconds) {
        while (static_cast<double>(frame_) / kRate + static_cast<double>(size_) / kRate <= seconds) deliver();
    }
    void skipTo(double seconds) { frame_ = std::llround(seconds * kRate); }

private:
    CaptureSink* sink_;
    Sound sound_;
    std::size_t size_;
    long long frame_;

    void deliver() {
        std::vector<float> samples;
        for (std::size_t index = 0; index < size_; ++index) {
            const double time = static_cast<double>(frame_ + static_cast<long long>(index)) / kRate;
            samples.push_back(static_cast<float>(sound_(time)));
            samples.push_back(-samples.back());
        }
        const auto nanoseconds = (frame_ * std::nano::den + kRate - 1) / kRate;
        sink_->onAudio({{kRate, 2}, samples}, kStart + base::Duration(nanoseconds));
        frame_ += static_cast<long long>(size_);
    }
};

class StreamMixerTest : public ::testing::Test {
protected:
    Output output;
    StreamMixer mixer{kRate, output};
    const Sound foreign = sine(440);
    const Sound other = sine(700, 0.1);
    const Sound own = sine(1500, 0.3);

    /// Runs streams together in steps of 10 ms.
    static void run(std::initializer_list<Stream*> streams, double from, double to) {
        for (double time = from; time < to; time += 0.01) {
            for (auto* stream : streams) stream->deliverUntil(time + 0.01);
        }
    }
};

TEST_F(StreamMixerTest, PassesTheWholeAtOnceAndUntouched) {
    Stream whole(mixer.whole(), foreign, 480);
    run({&whole}, 0, 0.5);
    EXPECT_NEAR(output.seconds(), 0.5, 0.011);
    EXPECT_LT(output.errorAgainst(foreign, 0, 0.48), 1e-6);
    EXPECT_TRUE(mixer.isWhole());
}

TEST_F(StreamMixerTest, LeavesOutWhatIsInNoPartAndTakesItInAgainWithoutASeam) {
    Stream whole(
        mixer.whole(), [&](double time) { return foreign(time) + (time > 0.5 && time < 2 ? own(time) : 0); }, 480);
    run({&whole}, 0, 0.5);
    Stream part(mixer.addPart(), foreign, 333, 0.56);
    mixer.useParts();
    run({&whole, &part}, 0.5, 2);
    mixer.useWhole(kStart + 2050ms);
    run({&whole, &part}, 2, 3);
    EXPECT_LT(output.errorAgainst(foreign, 0, 0.5), 1e-6);
    // The own sound is heard only until the part has begun.
    EXPECT_LT(output.errorAgainst(foreign, 0.59, 2.9), 1e-6);
    EXPECT_LT(output.worstJoin, 20us);
    EXPECT_TRUE(mixer.isWhole());
}

TEST_F(StreamMixerTest, LosesNothingWhenAPartIsAheadOfTheWhole) {
    Stream whole(mixer.whole(), foreign, 480);
    run({&whole}, 0, 1);
    Stream part(mixer.addPart(), foreign, 480, 1.03);
    mixer.useParts();
    part.deliverUntil(1.12);
    run({&whole, &part}, 1.12, 2);
    EXPECT_LT(output.errorAgainst(foreign, 0, 1.9), 1e-6);
}

TEST_F(StreamMixerTest, AlignsPartsByTheClockHoweverTheyArrive) {
    Stream whole(mixer.whole(), own, 480);
    Stream first(mixer.addPart(), foreign, 1024);
    Stream second(mixer.addPart(), other, 97);
    mixer.useParts();
    for (double time = 0; time < 2; time += 0.01) {
        whole.deliverUntil(time);
        second.deliverUntil(time - 0.2);
        first.deliverUntil(time - 0.05);
    }
    EXPECT_LT(output.errorAgainst(sum(foreign, other), 0.05, 1.7), 1e-6);
    EXPECT_LT(output.worstJoin, 20us);
}

TEST_F(StreamMixerTest, WaitsForAStalledPartOnlySoLongAndTakesItAgainWhenItComesBack) {
    Stream whole(mixer.whole(), own, 480);
    Stream first(mixer.addPart(), foreign, 480);
    Stream second(mixer.addPart(), other, 480);
    mixer.useParts();
    run({&whole, &first, &second}, 0, 1);
    run({&whole, &first}, 1, 2);
    EXPECT_GT(output.seconds(), 1.9) << "the output must not stay behind";
    second.skipTo(2);
    run({&whole, &first, &second}, 2, 3);
    EXPECT_LT(output.errorAgainst(sum(foreign, other), 0.05, 0.99), 1e-6);
    EXPECT_LT(output.errorAgainst(foreign, 1.01, 1.99), 1e-6);
    EXPECT_LT(output.errorAgainst(sum(foreign, other), 2.02, 2.9), 1e-6);
}

TEST_F(StreamMixerTest, GoesOnInSilenceWhenTheLastPartHasGone) {
    Stream whole(mixer.whole(), own, 480);
    auto& sink = mixer.addPart();
    Stream part(
        sink, [](double) { return 0.5; }, 480);
    mixer.useParts();
    run({&whole, &part}, 0, 1);
    mixer.removePart(sink);
    run({&whole}, 1, 2);
    EXPECT_LT(output.errorAgainst([](double) { return 0; }, 1.01, 1.95), 1e-6);
    double steepest = 0;
    for (std::size_t frame = kRate / 2; frame < output.samples.size(); ++frame) {
        steepest = std::max(steepest, std::abs(output.samples[frame] - output.samples[frame - 1]));
    }
    EXPECT_LT(steepest, 0.01) << "the part must fade out";
}

TEST_F(StreamMixerTest, FadesInAPartThatJoinsLater) {
    Stream whole(mixer.whole(), own, 480);
    mixer.useParts();
    run({&whole}, 0, 1);
    Stream part(
        mixer.addPart(), [](double) { return 0.5; }, 480, 1.1);
    run({&whole, &part}, 1, 2);
    EXPECT_NEAR(output.samples[static_cast<std::size_t>(1.105 * kRate)], 0.25, 0.01);
    EXPECT_LT(output.errorAgainst([](double) { return 0.5; }, 1.111, 1.9), 1e-6);
}

TEST_F(StreamMixerTest, SkipsALongSleepInsteadOfFillingIt) {
    Stream whole(mixer.whole(), own, 480);
    Stream part(mixer.addPart(), foreign, 480);
    mixer.useParts();
    run({&whole, &part}, 0, 1);
    whole.skipTo(100);
    part.skipTo(100);
    const auto before = output.worstJoin;
    run({&whole, &part}, 100, 101);
    EXPECT_LT(before, 20us);
    EXPECT_GT(output.worstJoin, 98s) << "the sleep must be a gap in time";
    EXPECT_LT(output.errorAgainst(foreign, 100.02, 100.9), 1e-6);
}

}  // namespace
}  // namespace tessivox::audio
