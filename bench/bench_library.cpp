// What listing a folder of recordings costs, at first, and again when nothing has changed, against the mediainfo
// program reading the length of a sample of the same files. All files are in the page cache.
//   bench_library [--smoke] [--recordings N] [--sample N]
#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Measure.h"
#include "Report.h"
#include "SpokenDialogue.h"
#include "audio/AudioEncoder.h"
#include "base/Text.h"
#include "library/RecordingScan.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/FfmpegLengths.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "support/ForwardingFiles.h"

namespace tessivox::bench {
namespace {

using Path = std::filesystem::path;

constexpr int kRate = 48000;
constexpr int kSeconds = 2;
constexpr int kRuns = 5;

struct CountingFiles final : testing::ForwardingFiles {
    using ForwardingFiles::ForwardingFiles;
    int opened = 0;
    std::unique_ptr<base::File> open(const Path& path, base::FileAccess access) override {
        ++opened;
        return ForwardingFiles::open(path, access);
    }
};

/// A folder of copies of one short recording, every second with a transcript.
class Folder {
public:
    Folder(base::Files& files, int recordings) : files_(files) {
        const auto original = folder_.path() / "original";
        encode(original);
        std::filesystem::create_directory(path());
        for (int number = 0; number < recordings; ++number) {
            const auto base = path() / ("2026-03-02_10-15-00_Meeting-" + base::paddedNumber(number, 5));
            std::filesystem::copy_file(original, base.string() + ".m4a");
            recordings_.push_back(base.string() + ".m4a");
            if (number % 2 == 0) files_.create(base.string() + ".txt")->append(std::as_bytes(std::span("words")));
        }
    }
    Path path() const { return folder_.path() / "recordings"; }
    /// Every so manieth, from all over the folder.
    std::vector<std::string> sample(int count) const {
        std::vector<std::string> chosen;
        const auto step = std::max<std::size_t>(1, recordings_.size() / static_cast<std::size_t>(count));
        for (std::size_t at = 0; at < recordings_.size(); at += step) chosen.push_back(recordings_[at]);
        return chosen;
    }

private:
    base::Files& files_;
    TemporaryFolder folder_;
    std::vector<std::string> recordings_;

    void encode(const Path& path) {
        SpokenDialogue speech;
        std::vector<float> samples;
        speech.next(kSeconds * kRate, samples);
        ffmpeg::AacEncoderFactory factory;
        audio::AudioEncoder encoder(factory, files_.create(path), {.bitrate = 64000});
        encoder.write(samples);
        encoder.finish();
    }
};

struct Scans {
    double cpu = 0;  ///< seconds, median
    int opened = 0;  ///< files, in each run
    library::ScanResult last;
};

Scans scan(base::Files& files, const Path& folder, std::size_t expected, const library::DurationCache& known) {
    const ffmpeg::FfmpegLengths lengths;
    int last = 0;
    const auto makeID = [&last] { return "00000000-0000-4000-8000-" + base::paddedNumber(++last, 12); };
    Scans result;
    std::vector<double> costs;
    for (int run = 0; run < kRuns; ++run) {
        CountingFiles counting(files);
        result.last = {};
        const Stopwatch watch;
        result.last = library::scanRecordings(counting, lengths, makeID, folder, known, {});
        costs.push_back(watch.elapsed().cpu);
        result.opened = counting.opened;
        const bool isComplete = result.last.recordings.size() == expected &&
                                std::ranges::all_of(result.last.recordings, [](const library::Recording& recording) {
                                    return std::abs(recording.duration - kSeconds) < 0.1;
                                });
        if (!isComplete) throw std::runtime_error("the scan did not find every recording with its length");
    }
    result.cpu = median(costs);
    return result;
}

/// CPU seconds a file, all files in one process, as fast as it goes.
double mediainfo(const std::vector<std::string>& sample) {
    std::vector<std::string> command{"mediainfo", "--Output=General;%Duration%\\n"};
    command.insert(command.end(), sample.begin(), sample.end());
    return runProgram(command).cpu / static_cast<double>(sample.size());
}

int run(const Arguments& arguments) {
    Report report(arguments.isSmoke());
    const int recordings = arguments.isSmoke() ? 100 : static_cast<int>(arguments.number("--recordings", 10000));
    const int sampled = arguments.isSmoke() ? 10 : static_cast<int>(arguments.number("--sample", 400));
    posix::EventLoop loop;
    posix::PosixFiles files(loop);
    const Folder folder(files, recordings);
    const auto count = static_cast<std::size_t>(recordings);
    scan(files, folder.path(), count, {});

    const auto first = scan(files, folder.path(), count, {});
    const auto again = scan(files, folder.path(), count, first.last.durations);
    const double perFile = first.cpu / recordings, theirs = mediainfo(folder.sample(sampled));
    const auto what = std::to_string(recordings) + " recordings";
    report.atMost("scan of " + what + ", CPU", 120, first.cpu * 1e3, "ms");
    report.peer("mediainfo, one process, so many files", first.cpu * 1e3, theirs * recordings * 1e3, "ms");
    report.atLeast("mediainfo's CPU over the scan's, a file", 100, theirs / perFile, "x");
    report.atMost("rescan of " + what + " with nothing changed, CPU", 120, again.cpu * 1e3, "ms");
    report.atMost("files opened by that rescan", 0, again.opened, "");
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_library", [&] { return tessivox::bench::run({count, values}); });
}
