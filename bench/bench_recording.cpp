// What recording costs: the capture threads, a live recording, one fed as fast as it goes, its memory, and the wait at
// its end.
//   bench_recording [--smoke] [--live SECONDS] [--stops N] [--long-stops N]
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <exception>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "CallMeter.h"
#include "LoopRun.h"
#include "Measure.h"
#include "PacedSound.h"
#include "Report.h"
#include "SpeechTape.h"
#include "TrialRecording.h"
#include "audio/AudioEncoder.h"
#include "audio/AudioLevelMonitor.h"
#include "audio/AudioRing.h"
#include "audio/MicrophoneCapture.h"
#include "audio/SystemAudioCapture.h"
#include "base/Text.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/MediaError.h"
#include "platform/linux/posix/Memory.h"

namespace tessivox::bench {
namespace {

using Path = std::filesystem::path;

/// How the sound of a capture thread is commonly handed on: a copy on the heap, a lock, a queue of functions.
class CommonQueue {
public:
    void push(const audio::AudioBuffer& buffer) {
        const auto copy = std::make_shared<std::vector<float>>(buffer.samples.begin(), buffer.samples.end());
        const std::lock_guard guard(lock_);
        work_.push_back([this, copy] { frames_ += copy->size(); });
        hasWork_.notify_one();
    }
    ~CommonQueue() {
        worker_.request_stop();
        hasWork_.notify_one();
    }

private:
    std::mutex lock_;
    std::condition_variable_any hasWork_;
    std::deque<std::function<void()>> work_;
    std::size_t frames_ = 0;
    std::jthread worker_{[this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            std::unique_lock guard(lock_);
            if (!hasWork_.wait(guard, stop, [this] { return !work_.empty(); })) return;
            const auto work = std::move(work_.front());
            work_.pop_front();
            guard.unlock();
            work();
        }
    }};
};

/// Calls with both sources' buffers by turns, so far apart that whoever they wake has gone to sleep again.
void deliverPaced(const SpeechTape& tape, int rounds, CallMeter& meter,
                  const std::function<void(const audio::AudioBuffer&, bool isSystem, std::uint64_t number)>& take) {
    std::vector<float> received;
    for (std::uint64_t number = 0; number < static_cast<std::uint64_t>(rounds); ++number) {
        for (const bool isSystem : {false, true}) {
            const auto buffer = isSystem ? tape.system(number) : tape.microphone(number);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            received.assign(buffer.samples.begin(), buffer.samples.end());
            meter.measure([&] { take({buffer.format, received}, isSystem, number); });
        }
    }
}

void measureAppending(Report& report, const SpeechTape& tape, bool isSmoke) {
    const int rounds = isSmoke ? 200 : 2000;
    const TemporaryFolder folder;
    posix::EventLoop loop;
    CallMeter ours(100);
    {
        TrialRecording recording(loop, folder.path(), nullptr);
        runBeside(loop, [&] {
            deliverPaced(tape, rounds, ours,
                         [&](const audio::AudioBuffer& buffer, bool isSystem, std::uint64_t number) {
                             const auto time = recording.timeOf(number * buffer.frames());
                             auto& writer = recording.writer();
                             isSystem ? writer.appendSystem(buffer, time) : writer.appendMicrophone(buffer, time);
                         });
        });
        recording.stop();
    }
    CallMeter theirs(100);
    CommonQueue queue;
    deliverPaced(tape, rounds, theirs,
                 [&](const audio::AudioBuffer& buffer, bool, std::uint64_t) { queue.push(buffer); });
    CallMeter copying(100);
    audio::AudioRing<int> ring(20 * SpeechTape::kRate, 4096);
    deliverPaced(tape, rounds, copying, [&](const audio::AudioBuffer& buffer, bool, std::uint64_t) {
        ring.push(0, buffer.samples);
        ring.pop();
    });
    report.atMost("append of a buffer, CPU, average", 5, ours.microseconds(), "us");
    report.peer("mutex, condition variable, queue of functions", ours.microseconds(), theirs.microseconds(), "us");
    report.peer("the same: median", ours.medianMicroseconds(), theirs.medianMicroseconds(), "us");
    report.peer("nothing but the copy, nobody woken", ours.microseconds(), copying.microseconds(), "us");
    report.atMost("append of a buffer, allocations in " + std::to_string(ours.calls()) + " calls", 0,
                  static_cast<double>(ours.allocations()), "");
    report.note("  the peer's allocations: " + std::to_string(theirs.allocations()));
}

/// The two captures of a recorder with what they deliver to.
struct LiveSources : audio::MicrophoneCaptureDelegate, audio::SystemAudioCaptureDelegate {
    audio::StereoAudioWriter& writer;
    audio::AudioLevelMonitor levels;
    audio::MicrophoneCapture microphone;
    audio::SystemAudioCapture system;

    LiveSources(base::Scheduler& loop, PacedSound& sound, audio::StereoAudioWriter& target)
        : writer(target), levels(loop), microphone(loop, sound, sound, *this), system(loop, sound, sound, *this) {}

    void microphoneDidCapture(const audio::AudioBuffer& buffer, base::HostTime time) override {
        writer.appendMicrophone(buffer, time);
    }
    void microphoneDidMeasure(float level) override { levels.updateMicrophoneLevel(level); }
    void microphoneDidFail(const base::Error& error) override { throw error; }
    void systemAudioDidCapture(const audio::AudioBuffer& buffer, base::HostTime time) override {
        writer.appendSystem(buffer, time);
    }
    void systemAudioDidMeasure(float level) override { levels.updateSystemAudioLevel(level); }
    void systemAudioDidFail(const base::Error& error) override { throw error; }

    base::Task<bool> start() {
        co_await microphone.start(std::nullopt);
        co_await system.start();
        co_return true;
    }
};

void turnFor(posix::EventLoop& loop, double seconds) {
    const auto end = loop.after(base::fromSeconds(seconds), [&] { loop.quit(); });
    loop.run();
}

void writeSamples(const Path& path, const std::vector<float>& samples, double seconds, int channels) {
    std::ofstream out(path, std::ios::binary);
    const auto wanted = static_cast<std::size_t>(seconds * SpeechTape::kRate) * static_cast<std::size_t>(channels);
    for (std::size_t left = wanted; left > 0;) {
        const auto count = std::min(left, samples.size());
        out.write(reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(count * sizeof(float)));
        left -= count;
    }
    if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

/// The ffmpeg program mixing the same two sources into one file; the pace is "-re" for real time.
Cost mixWithProgram(const Path& folder, const SpeechTape& tape, double seconds, const std::vector<std::string>& pace,
                    const std::vector<std::string>& output) {
    const auto microphone = folder / "microphone.raw";
    const auto system = folder / "system.raw";
    writeSamples(microphone, tape.microphoneSamples(), seconds, 1);
    writeSamples(system, tape.systemSamples(), seconds, 2);
    std::vector<std::string> command{"ffmpeg", "-v", "error", "-y"};
    for (const auto& [path, channels] : {std::pair(microphone, "1"), std::pair(system, "2")}) {
        command.insert(command.end(), pace.begin(), pace.end());
        command.insert(command.end(), {"-f", "f32le", "-ar", "48000", "-ac", channels, "-i", path});
    }
    command.insert(command.end(), {"-filter_complex", "[1:a]pan=mono|c0=.5*c0+.5*c1[s];[0:a][s]amerge=inputs=2"});
    command.insert(command.end(), output.begin(), output.end());
    return runProgram(command);
}

/// What encoding alone takes of a core, without pause and with warm caches.
double encoderShare(const Path& folder, const SpeechTape& tape) {
    posix::EventLoop loop;
    posix::PosixFiles files(loop);
    ffmpeg::AacEncoderFactory factory;
    const auto encoder =
        std::make_unique<audio::AudioEncoder>(factory, files.create(folder / "alone.m4a"), audio::AudioEncoding{});
    constexpr int seconds = 10;
    const Stopwatch watch;
    for (int second = 0; second < seconds; ++second) {
        encoder->write(
            std::span(tape.systemSamples())
                .subspan(std::size_t{2} * SpeechTape::kRate * static_cast<std::size_t>(second), 2 * SpeechTape::kRate));
    }
    return 100 * watch.elapsed().cpu / seconds;
}

/// A live recording of some seconds; returns what the process spent on it, after its first two.
Cost recordLive(const Path& folder, const SpeechTape& tape, double seconds, bool measuresCalls,
                const std::function<void(const PacedSound&)>& then) {
    posix::EventLoop loop;
    ffmpeg::AacEncoderFactory encoders;
    PacedSound sound(loop, tape, measuresCalls, 100);
    Cost cost;
    {
        TrialRecording recording(loop, folder, &encoders);
        LiveSources sources(loop, sound, recording.writer());
        finish(loop, sources.start());
        turnFor(loop, 2);
        const Stopwatch watch(Stopwatch::Scope::process);
        turnFor(loop, seconds);
        cost = watch.elapsed();
        sources.microphone.stop();
        sources.system.stop();
        recording.stop();
    }
    then(sound);
    return cost;
}

void reportCalls(Report& report, const std::string& source, const CallMeter& calls) {
    report.atMost("live capture callback, " + source + ", CPU, average", 5, calls.microseconds(), "us");
    report.note("  median " + base::fixedNumber(calls.medianMicroseconds(), 2) + " us");
    report.atMost("live capture callback, " + source + ", allocations", 0, static_cast<double>(calls.allocations()),
                  "");
}

void measureLive(Report& report, const SpeechTape& tape, double seconds) {
    const TemporaryFolder folder;
    const auto cost = recordLive(folder.path() / "plain", tape, seconds, false, [](const PacedSound&) {});
    const double share = 100 * cost.cpu / cost.wall;
    report.atMost("live recording of two sources, of one core", 1.5, share, "%");
    report.note("  encoding alone, at one go: " + base::fixedNumber(encoderShare(folder.path(), tape), 2) + " %");
    const auto peer = mixWithProgram(folder.path(), tape, seconds, {"-re"},
                                     {"-c:a", "aac", "-aac_coder", "fast", "-b:a", "128k", folder.path() / "peer.m4a"});
    report.peer("ffmpeg -re of both as files, aac, fast coder", share, 100 * peer.cpu / seconds, "%");
    recordLive(folder.path() / "metered", tape, seconds, true, [&](const PacedSound& sound) {
        reportCalls(report, "microphone", sound.microphoneCalls());
        reportCalls(report, "system audio", sound.systemCalls());
    });
}

/// The least that work could be: the two sources folded and laid side by side in one thread, unplaced.
Cost writeInline(const Path& folder, const SpeechTape& tape, double seconds) {
    const Stopwatch watch(Stopwatch::Scope::process);
    std::ofstream out(folder / "inline.raw", std::ios::binary);
    const auto& microphone = tape.microphoneSamples();
    const auto& system = tape.systemSamples();
    std::vector<float> chunk(2 * SpeechTape::kRate);
    std::size_t position = 0;
    for (int second = 0; second < static_cast<int>(seconds); ++second) {
        for (std::size_t frame = 0; frame < SpeechTape::kRate; ++frame, ++position) {
            if (position == microphone.size()) position = 0;
            chunk[2 * frame] = microphone[position];
            chunk[2 * frame + 1] = (system[2 * position] + system[2 * position + 1]) * 0.5F;
        }
        out.write(reinterpret_cast<const char*>(chunk.data()),
                  static_cast<std::streamsize>(chunk.size() * sizeof(float)));
    }
    if (!out.flush()) throw std::runtime_error("the disk is full");
    return watch.elapsed();
}

void measureFeeding(Report& report, const SpeechTape& tape, double seconds, int repetitions) {
    const TemporaryFolder folder;
    std::vector<double> speeds;
    std::vector<double> costs;
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        posix::EventLoop loop;
        TrialRecording recording(loop, folder.path(), nullptr);
        const Stopwatch watch(Stopwatch::Scope::process);
        runBeside(loop, [&] { recording.feedUpTo(tape, seconds, {}); });
        const auto cost = watch.elapsed();
        recording.stop();
        std::filesystem::remove(folder.path() / "trial.m4a");
        speeds.push_back(seconds / cost.wall);
        costs.push_back(1e3 * cost.cpu / seconds);
    }
    report.atLeast("fed offline, no encoder, median of " + std::to_string(repetitions), 1000, median(speeds), "x real");
    report.note("  CPU of the whole process: " + base::fixedNumber(median(costs), 3) + " ms a second of sound");
    const auto floor = writeInline(folder.path(), tape, seconds);
    report.peer("one loop, no queues, no placing: speed", median(speeds), seconds / floor.wall, "x real");
    report.peer("the same: CPU", median(costs), 1e3 * floor.cpu / seconds, "ms/s");
    const double part = std::min(seconds, 600.0);
    const auto peer = mixWithProgram(folder.path(), tape, part, {}, {"-c:a", "pcm_f32le", folder.path() / "peer.caf"});
    report.peer("ffmpeg, both as files, into a CAF: speed", median(speeds), part / peer.wall, "x real");
    report.peer("the same: CPU", median(costs), 1e3 * peer.cpu / part, "ms/s");
}

/// Bytes of the process that are in memory.
double residentMemory() {
    std::ifstream statm("/proc/self/statm");
    double size = 0;
    double resident = 0;
    statm >> size >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

/// Follows the memory of a recording, from its first minutes on.
class MemoryWatch {
public:
    void note(double second) {
        if (begin_ == 0) {
            begin_ = second;
            base_ = residentMemory();
        }
        const double grown = residentMemory() - base_;
        growth_ = std::max(growth_, grown);
        beyond_ = std::max(beyond_, grown - kBytesAnHour * (second - begin_) / 3600);
    }
    double growth() const { return growth_ / 1e6; }
    /// Megabytes beyond what the encoder's index may take.
    double beyond() const { return beyond_ / 1e6; }

private:
    static constexpr double kBytesAnHour = 12e6;
    double begin_ = 0;
    double base_ = 0;
    double growth_ = 0;
    double beyond_ = 0;
};

struct LongRecording {
    double stop = 0;     ///< seconds
    double feeding = 0;  ///< seconds
    double memory = 0;   ///< megabytes it grew by
    double beyond = 0;   ///< megabytes beyond the limit's part for the index
    double peer = 0;     ///< seconds, if it was asked for
};

LongRecording record(const SpeechTape& tape, double seconds, bool withPeer) {
    // What a kernel has not written after half a minute is what a stop of a real recording finds, too.
    constexpr double unsettled = 30;
    // A stop hardly ever falls on a whole second.
    constexpr double rest = 0.4;
    const TemporaryFolder folder;
    posix::EventLoop loop;
    ffmpeg::AacEncoderFactory encoders;
    TrialRecording recording(loop, folder.path(), &encoders);
    MemoryWatch memory;
    LongRecording result;
    runBeside(loop, [&] {
        const Stopwatch watch;
        const auto onMinute = [&](double second) {
            if (second >= std::min(300.0, seconds / 4)) memory.note(second);
        };
        recording.feedUpTo(tape, std::max(seconds - unsettled, seconds / 2), onMinute);
        recording.settleFiles();
        if (withPeer) {
            result.peer = runProgram({"ffmpeg", "-v", "error", "-y", "-i", recording.temporary(), "-c:a", "aac", "-b:a",
                                      "128k", folder.path() / "peer.m4a"})
                              .wall;
        }
        recording.feedUpTo(tape, seconds + rest, onMinute);
        result.feeding = watch.elapsed().wall - result.peer;
    });
    result.stop = recording.stop();
    result.memory = memory.growth();
    result.beyond = memory.beyond();
    return result;
}

std::string lengthOf(double seconds) {
    return seconds < 3600 ? std::to_string(static_cast<int>(seconds / 60)) + " min"
                          : std::to_string(static_cast<int>(seconds / 3600)) + " h";
}

void measureStops(Report& report, const SpeechTape& tape, double seconds, double limit, int repetitions,
                  bool withPeer) {
    std::vector<double> stops;
    double peer = 0;
    double beyond = 0;
    double growth = 0;
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        const auto one = record(tape, seconds, withPeer && repetition == 0);
        stops.push_back(1e3 * one.stop);
        if (repetition == 0) peer = one.peer;
        beyond = std::max(beyond, one.beyond);
        growth = std::max(growth, one.memory);
        report.note(
            base::filled("  {0} fed in {1} s, stopped in {2} ms",
                         {lengthOf(seconds), base::fixedNumber(one.feeding, 1), base::fixedNumber(stops.back(), 1)}));
    }
    const auto name = lengthOf(seconds);
    report.atMost("stop of a " + name + " recording, median of " + std::to_string(repetitions), limit, median(stops),
                  "ms");
    if (withPeer) report.peer("ffmpeg -c:a aac of its temporary file", median(stops), 1e3 * peer, "ms");
    report.atMost("memory over " + name + ", beyond 12 MB an hour", 5, beyond, "MB");
    report.note("  grown by " + base::fixedNumber(growth, 1) + " MB in all");
}

int run(const Arguments& arguments) {
    ffmpeg::redirectLog();
    posix::keepBigBlocksApart();  // as the program does
    Report report(arguments.isSmoke());
    const SpeechTape tape;
    measureAppending(report, tape, arguments.isSmoke());
    measureLive(report, tape, arguments.number("--live", arguments.isSmoke() ? 2 : 20));
    measureFeeding(report, tape, arguments.number("--feed", arguments.isSmoke() ? 60 : 3600),
                   arguments.isSmoke() ? 1 : 3);
    if (arguments.isSmoke()) {
        measureStops(report, tape, 60 * arguments.number("--minutes", 2), 100, 1, true);
        return report.exitStatus();
    }
    measureStops(report, tape, 3600, 100, static_cast<int>(arguments.number("--stops", 5)), true);
    measureStops(report, tape, 4 * 3600, 200, static_cast<int>(arguments.number("--long-stops", 5)), false);
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_recording", [&] { return tessivox::bench::run({count, values}); });
}
