#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "audio/StereoAudioWriter.h"
#include "audio/TimedCapture.h"
#include "support/FakeEncoder.h"
#include "support/ManualRuntime.h"
#include "support/NullFiles.h"

namespace tessivox::audio {
namespace {

using namespace std::chrono_literals;
using base::Duration;
using base::HostTime;

constexpr auto kClickInterval = 7s;

/// Finds the clicks in what is recorded.
struct ClickFinder final : AudioEncoderFactory {
    std::array<std::vector<std::uint64_t>, 2> clicks;  ///< frames, a channel each

    struct Encoder final : PacketEncoder {
        ClickFinder& owner;
        std::uint64_t frames = 0;
        explicit Encoder(ClickFinder& finder) : owner(finder) {}
        void write(std::span<const float> interleaved, AudioPackets& packets) override {
            for (std::size_t index = 0; index < interleaved.size(); ++index) {
                if (interleaved[index] > 0.5F) owner.clicks[index % 2].push_back(frames + index / 2);
            }
            frames += interleaved.size() / 2;
            packets.append({}, static_cast<std::uint32_t>(interleaved.size() / 2));
        }
        void finish(AudioPackets&) override {}
    };
    struct Counter final : PacketFile {
        std::uint64_t frames = 0;
        void write(const AudioPackets& packets) override {
            for (const auto& packet : packets.packets) frames += packet.frames;
        }
        std::uint64_t finish() override { return frames; }
    };
    std::unique_ptr<PacketEncoder> makeEncoder(const AudioEncoding&) override {
        return std::make_unique<Encoder>(*this);
    }
    std::unique_ptr<PacketFile> makeFile(std::unique_ptr<base::File>, const AudioEncoding&) override {
        return std::make_unique<Counter>();
    }
};

/// A device with a clock of its own that hears a click every seven seconds of true time, behind a server whose replies
/// are off by half a millisecond as a rule and up to five now and then.
class Device final : CaptureSink {
public:
    Device(HostTime start, double rate, std::size_t fragment, unsigned seed,
           std::function<void(const AudioBuffer&, HostTime)> deliver)
        : start_(start), rate_(rate), samples_(fragment), random_(seed), deliver_(std::move(deliver)) {}

    HostTime nextArrival() const { return arrival_; }
    std::optional<HostTime> firstTime;

    /// One fragment arrives, or is lost.
    void step() {
        const auto now = arrival_;
        if (isLost_(random_)) {
            capture_.addHole(samples_.size(), now);
        } else {
            paintClicks();
            capture_.addAudio(samples_, now);
        }
        frames_ += samples_.size();
        if (capture_.wantsTimingReply(now)) capture_.addTimingReply(now, start_ + replyError());
        capture_.releaseOverdue(now);
        arrival_ = std::max(now, timeOf(frames_ + samples_.size()) + base::fromSeconds(lateness_(random_)));
    }

private:
    HostTime start_;
    double rate_;
    std::vector<float> samples_;
    std::mt19937 random_;
    std::function<void(const AudioBuffer&, HostTime)> deliver_;
    std::uint64_t frames_ = 0;
    HostTime arrival_ = timeOf(samples_.size());
    TimedCapture capture_{{48000, 1}, *this};
    std::bernoulli_distribution isLost_{1.0 / 3000};
    std::bernoulli_distribution isOutlier_{0.01};
    std::normal_distribution<double> noise_{0, 0.5e-3};
    std::uniform_real_distribution<double> outlier_{-5e-3, 5e-3};
    std::uniform_real_distribution<double> lateness_{0, 10e-3};

    HostTime timeOf(std::uint64_t frame) const {
        return start_ + base::fromSeconds(static_cast<double>(frame) / rate_);
    }
    /// As the nominal rate is what frames are turned into time with, drift shows in the origin that replies tell.
    Duration replyError() {
        const auto drift = static_cast<double>(frames_) / rate_ - static_cast<double>(frames_) / 48000;
        return base::fromSeconds(drift + (isOutlier_(random_) ? outlier_(random_) : noise_(random_)));
    }
    void paintClicks() {
        std::ranges::fill(samples_, 0.0F);
        const auto number = (timeOf(frames_) - HostTime{}) / kClickInterval + 1;
        const auto offset = base::toSeconds(HostTime(number * kClickInterval) - timeOf(frames_)) * rate_;
        if (offset < static_cast<double>(samples_.size())) samples_[static_cast<std::size_t>(offset)] = 1;
    }
    void onAudio(const AudioBuffer& buffer, HostTime time) override {
        if (!firstTime) firstTime = time;
        deliver_(buffer, time);
    }
    void onEnded(const std::string&) override {}
};

TEST(AlignmentTest, BothChannelsStayWithinAMillisecondOfTheTruthForFourHoursOfDrift) {
    testing::NullFiles disk;
    testing::ManualRuntime time;
    testing::FakeConverter converters;
    ClickFinder finder;
    StereoAudioWriter writer(time, disk, converters, finder, "/incomplete");
    writer.start("/recordings/talk.m4a", 48000, false, 128000);
    const auto start = time.now();
    Device microphone(start, 48000 * (1 + 200e-6), 1024, 1,
                      [&](const AudioBuffer& buffer, HostTime at) { writer.appendMicrophone(buffer, at); });
    Device system(start + 137ms, 48000 * (1 - 200e-6), 960, 2,
                  [&](const AudioBuffer& buffer, HostTime at) { writer.appendSystem(buffer, at); });

    for (int round = 0; microphone.nextArrival() < start + 4h; ++round) {
        (microphone.nextArrival() < system.nextArrival() ? microphone : system).step();
        if (round % 16 == 0) time.settle();
    }
    ASSERT_TRUE(std::holds_alternative<Saved>(testing::await(time, writer.stop())));

    const auto zero = std::min(*microphone.firstTime, *system.firstTime);
    for (const auto& clicks : finder.clicks) {
        ASSERT_GT(clicks.size(), 4U * 3600 / 7 * 98 / 100);
        std::vector<double> errors;  // seconds
        for (const auto frame : clicks) {
            const auto heard = base::toSeconds(zero - HostTime{}) + static_cast<double>(frame) / 48000;
            const auto nearest = std::round(heard / base::toSeconds(kClickInterval)) * base::toSeconds(kClickInterval);
            errors.push_back(std::abs(heard - nearest));
        }
        std::ranges::sort(errors);
        EXPECT_LT(errors[errors.size() * 99 / 100], 1e-3);
        EXPECT_LT(errors.back(), 2e-3);
        RecordProperty("p99_us", static_cast<int>(errors[errors.size() * 99 / 100] * 1e6));
        RecordProperty("max_us", static_cast<int>(errors.back() * 1e6));
    }
}

}  // namespace
}  // namespace tessivox::audio
