// What the small copy costs that is uploaded in place of a recording, against the ffmpeg program's own way of making
// one, in turns in the same run.
//   bench_upload_copy [--smoke] [--minutes N] [--rounds N]
#include <cmath>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "LoopRun.h"
#include "Measure.h"
#include "Report.h"
#include "SpokenDialogue.h"
#include "audio/AudioEncoder.h"
#include "audio/Mpeg4Duration.h"
#include "base/Uuid.h"
#include "platform/linux/ffmpeg/SoundConversion.h"
#include "platform/linux/ffmpeg/UploadCopies.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/RandomBytes.h"

namespace tessivox::bench {
namespace {

using Path = std::filesystem::path;

constexpr int kRate = 48000;

class Trial {
public:
    Trial(const Path& folder, int seconds) : seconds_(seconds), folder_(folder), source_(folder / "recording.m4a") {
        SpokenDialogue speech;
        audio::AudioEncoder encoder(encoders_, files_.create(source_), {.sampleRate = kRate});
        std::vector<float> second;
        for (int i = 0; i < seconds; ++i) {
            speech.next(kRate, second);
            encoder.write(second);
        }
        encoder.finish();
    }

    Cost ours() {
        const Stopwatch watch(Stopwatch::Scope::process);
        const auto copy = finish(loop_, copies_.makeUploadCopy(source_, {}));
        const auto cost = watch.elapsed();
        check(copy->path());
        return cost;
    }

    Cost peers() {
        const auto target = folder_ / "peer.m4a";
        const auto cost = runProgram({"ffmpeg", "-v", "error", "-y", "-i", source_, "-vn", "-ac", "1", "-ar", "16000",
                                      "-c:a", "aac", "-b:a", "32k", target});
        check(target);
        return cost;
    }

private:
    int seconds_;
    Path folder_;
    Path source_;
    posix::EventLoop loop_;
    posix::PosixFiles files_{loop_};
    ffmpeg::AacEncoderFactory encoders_;
    ffmpeg::SoundConversion conversion_{loop_, files_};
    ffmpeg::UploadCopies copies_{
        {loop_, files_, conversion_, folder_, [] { return base::makeUuid(posix::fillRandom); }}};

    /// Nobody is quick who leaves something out.
    void check(const Path& copy) {
        const auto length = audio::readMpeg4Duration(*files_.open(copy, base::FileAccess::read));
        const double seconds = length ? static_cast<double>(length->duration) / length->timescale : 0;
        if (std::abs(seconds - seconds_) > 0.1) throw std::runtime_error("the copy is not as long as the recording");
    }
};

int run(const Arguments& arguments) {
    const int seconds = arguments.isSmoke() ? 300 : static_cast<int>(arguments.number("--minutes", 60) * 60);
    const int rounds = arguments.isSmoke() ? 1 : static_cast<int>(arguments.number("--rounds", 2));
    const TemporaryFolder folder;
    Trial trial(folder.path(), seconds);
    Report report(arguments.isSmoke());
    const auto memory = static_cast<double>(anonymousMemory());
    std::vector<double> ourCpu, ourWall, peerCpu, peerWall;
    for (int round = 0; round < rounds; ++round) {
        const auto ours = trial.ours(), peers = trial.peers();
        ourCpu.push_back(ours.cpu);
        ourWall.push_back(ours.wall);
        peerCpu.push_back(peers.cpu);
        peerWall.push_back(peers.wall);
    }
    const auto what = "upload copy of " + std::to_string(seconds / 60) + " minutes, ";
    report.atMost(what + "CPU", 0.5, median(ourCpu) / median(peerCpu), "of ffmpeg's");
    report.peer("ffmpeg -ac 1 -ar 16000 -c:a aac -b:a 32k", median(ourCpu), median(peerCpu), "s");
    report.atMost(what + "wall", 0.4, median(ourWall) / median(peerWall), "of ffmpeg's");
    report.peer("the same", median(ourWall), median(peerWall), "s");
    const double grown = (static_cast<double>(anonymousMemory()) - memory) / 1e6;
    report.note("  memory kept afterwards: " + std::to_string(std::lround(grown)) + " MB");
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_upload_copy", [&] { return tessivox::bench::run({count, values}); });
}
