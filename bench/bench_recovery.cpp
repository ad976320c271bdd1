// What two workers gain when an interrupted recording is finished, against one in the same run.
//   bench_recovery [--smoke] [--minutes N]
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Measure.h"
#include "Report.h"
#include "SpeechTape.h"
#include "audio/CafFile.h"
#include "audio/Mpeg4Duration.h"
#include "audio/RecordingFiles.h"
#include "audio/RecordingRecovery.h"
#include "base/Text.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"

namespace tessivox::bench {
namespace {

using Path = std::filesystem::path;

/// A minute of conversation, interleaved.
std::vector<float> minuteOfSpeech() {
    const SpeechTape tape;
    std::vector<float> samples;
    for (std::size_t frame = 0; frame < 60 * SpeechTape::kRate; ++frame) {
        samples.push_back(tape.microphoneSamples().at(frame));
        samples.push_back(tape.systemSamples().at(2 * frame));
    }
    return samples;
}

/// The CPU of a queue's thread from one call to the next.
class QueueMeter {
public:
    explicit QueueMeter(base::TaskQueue& queue) : queue_(queue) { cpu(); }
    double cpu() {
        std::promise<double> result;
        queue_.post([&] {
            result.set_value(watch_ ? watch_->elapsed().cpu : 0);
            watch_.emplace();
        });
        return result.get_future().get();
    }

private:
    base::TaskQueue& queue_;
    std::optional<Stopwatch> watch_;
};

class Trial {
public:
    Trial(const Path& folder, int minutes) : minutes_(minutes), folder_(folder) {
        files_.makeFolders(folder_ / "Incomplete");
        const auto minute = minuteOfSpeech();
        audio::CafWriter writer(files_.create(folder_ / "crashed.caf"), {SpeechTape::kRate, 2});
        for (int number = 0; number < minutes; ++number) {
            writer.write(static_cast<std::uint64_t>(number) * minute.size() / 2, minute);
        }
    }

    /// Recovers the recording with or without the helper; gives this thread's cost and the helper's CPU.
    struct Result {
        Cost own;
        double helperCpu = 0;
    };
    Result recover(bool hasHelper) {
        std::filesystem::create_hard_link(folder_ / "crashed.caf", folder_ / "Incomplete" / "stereo_crashed.caf");
        const auto queue = loop_.makeQueue("com.tessivox.recovery.helper", base::QueuePriority::userInitiated);
        audio::EncodingTools tools{files_, encoders_, {}};
        if (hasHelper) tools.helpers.push_back(queue.get());
        QueueMeter helper(*queue);
        Result result;
        const Stopwatch watch;
        const auto urls = audio::recoverIncompleteFiles(tools, folder_ / "Incomplete", folder_ / "Recordings", {});
        result.own = watch.elapsed();
        result.helperCpu = helper.cpu();
        checkAndRemove(urls);
        return result;
    }

private:
    int minutes_;
    Path folder_;
    posix::EventLoop loop_;
    posix::PosixFiles files_{loop_};
    ffmpeg::AacEncoderFactory encoders_;

    void checkAndRemove(const std::vector<Path>& urls) {
        if (urls.size() != 1) throw std::runtime_error("the recording was not recovered");
        const auto duration = audio::readMpeg4Duration(*files_.open(urls[0], base::FileAccess::read));
        if (!duration || duration->duration != static_cast<std::uint64_t>(minutes_) * 60 * SpeechTape::kRate) {
            throw std::runtime_error("the recovered recording is not whole");
        }
        files_.remove(urls[0]);
    }
};

int run(const Arguments& arguments) {
    const int minutes = arguments.isSmoke() ? 8 : static_cast<int>(arguments.number("--minutes", 60));
    const TemporaryFolder folder;
    Trial trial(folder.path(), minutes);
    Report report(arguments.isSmoke());
    const auto memory = static_cast<double>(anonymousMemory());
    const auto one = trial.recover(false);
    const auto two = trial.recover(true);
    const auto length = std::to_string(minutes) + " minutes";
    const double longest = std::max(two.own.cpu, two.helperCpu);
    report.atMost("recovery of " + length + ", longest of two workers, CPU", 0.6, longest / one.own.cpu, "of one");
    report.peer("one worker", longest, one.own.cpu, "s");
    report.peer("the same: both workers' CPU", two.own.cpu + two.helperCpu, one.own.cpu, "s");
    report.peer("the same: wall", two.own.wall, one.own.wall, "s");
    const double grown = (static_cast<double>(anonymousMemory()) - memory) / 1e6;
    report.note("  memory kept after both: " + base::fixedNumber(grown, 1) + " MB");
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_recovery", [&] { return tessivox::bench::run({count, values}); });
}
