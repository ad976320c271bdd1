// What encoding beside the recording costs, and what is left to do at its end, against encoding afterwards with the
// ffmpeg program from the same samples in the same run.
//   bench_encode [--smoke] [--minutes N] [--kbits 64|128|256]
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Measure.h"
#include "SpokenDialogue.h"
#include "audio/AudioEncoder.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"

namespace tessivox::bench {
namespace {

constexpr int kRate = 48000;

using Path = std::filesystem::path;

void writeSamples(const Path& path, int seconds) {
    SpokenDialogue speech;
    std::vector<float> chunk;
    std::ofstream out(path, std::ios::binary);
    for (int i = 0; i < seconds; ++i) {
        speech.next(kRate, chunk);
        out.write(reinterpret_cast<const char*>(chunk.data()),
                  static_cast<std::streamsize>(chunk.size() * sizeof(float)));
    }
    if (!out.flush()) throw std::runtime_error("the samples cannot be written to " + path.string());
}

struct Incremental {
    double chunkCpu = 0;   ///< seconds, median
    double chunkWall = 0;  ///< seconds, the longest
    double totalCpu = 0;   ///< seconds, end included
    double endWall = 0;    ///< seconds from the last chunk to a closed, synced file
    double memory = 0;     ///< bytes that the process grew by
};

Incremental encodeInChunks(const Path& samples, const Path& target, int bitrate, int seconds) {
    posix::EventLoop loop;
    posix::PosixFiles files(loop);
    ffmpeg::AacEncoderFactory factory;
    Incremental result;
    std::vector<double> costs;
    std::vector<float> chunk(kRate * 2);
    std::ifstream in(samples, std::ios::binary);
    const auto memory = static_cast<double>(anonymousMemory());
    const auto encoder =
        std::make_unique<audio::AudioEncoder>(factory, files.create(target), audio::AudioEncoding{.bitrate = bitrate});
    while (in.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(chunk.size() * sizeof(float)))) {
        const Stopwatch watch;
        encoder->write(chunk);
        const auto cost = watch.elapsed();
        costs.push_back(cost.cpu);
        result.totalCpu += cost.cpu;
        result.chunkWall = std::max(result.chunkWall, cost.wall);
    }
    result.memory = static_cast<double>(anonymousMemory()) - memory;
    const Stopwatch watch;
    const auto frames = encoder->finish();
    result.endWall = watch.elapsed().wall;
    result.totalCpu += watch.elapsed().cpu;
    result.chunkCpu = median(costs);
    if (frames != static_cast<std::uint64_t>(seconds) * kRate) throw std::runtime_error("frames are missing");
    return result;
}

Cost encodeWithProgram(const Path& samples, const Path& target, int bitrate, const std::string& coder) {
    return runProgram({"ffmpeg", "-v", "error", "-y", "-f", "f32le", "-ar", "48000", "-ac", "2", "-i", samples, "-c:a",
                       "aac", "-b:a", std::to_string(bitrate), "-aac_coder", coder, target});
}

void compare(const TemporaryFolder& folder, int bitrate, int seconds) {
    const auto samples = folder.path() / "samples.raw";
    const auto target = folder.path() / (std::to_string(bitrate) + ".m4a");
    const auto ours = encodeInChunks(samples, target, bitrate, seconds);
    const auto peerFile = folder.path() / "peer.m4a";
    const auto usual = encodeWithProgram(samples, peerFile, bitrate, "twoloop");
    const auto fast = encodeWithProgram(samples, peerFile, bitrate, "fast");
    std::printf("%4d kbit/s | %6.2f %8.2f | %8.2f %8.2f | %8.2f %8.2f | %8.2f %8.2f | %8.0f %8.0f\n", bitrate / 1000,
                ours.chunkCpu * 1e3, ours.chunkWall * 1e3, ours.endWall * 1e3, ours.memory / 1e6, usual.wall, fast.wall,
                ours.totalCpu / usual.cpu, ours.totalCpu / fast.cpu, usual.wall / ours.endWall,
                fast.wall / ours.endWall);
    std::fflush(stdout);
}

void run(const Arguments& arguments) {
    const int seconds = arguments.isSmoke() ? 5 : static_cast<int>(arguments.number("--minutes", 10) * 60);
    const TemporaryFolder folder;
    writeSamples(folder.path() / "samples.raw", seconds);
    std::printf("%d s of stereo at 48 kHz, in chunks of 1 s; peer: ffmpeg -c:a aac of the same samples\n", seconds);
    std::printf(
        "            | chunk CPU  max wall | end wall   memory |  peer s: default, fast |  CPU ratio ours/peer  "
        "| wait at the end: x shorter\n");
    const int only = static_cast<int>(arguments.number("--kbits", 0)) * 1000;
    for (const int bitrate : {64000, 128000, 256000}) {
        if (only == 0 || only == bitrate) compare(folder, bitrate, seconds);
    }
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    try {
        tessivox::bench::run({count, values});
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_encode: %s\n", error.what());
        return 1;
    }
}
