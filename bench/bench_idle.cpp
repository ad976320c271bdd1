// What the program costs while it waits: its main loop, its queues, and the link to a private sound server whose
// devices it watches.
//   bench_idle [--smoke] [--seconds N]
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>

#include "LoopRun.h"
#include "Measure.h"
#include "Report.h"
#include "app/Headless.h"
#include "audio/AudioLevelMonitor.h"
#include "audio/AudioRecorder.h"
#include "base/Text.h"
#include "core/AppState.h"
#include "core/JsonPreferences.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/SwrConverter.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/PosixLocalTime.h"
#include "platform/linux/pulse/PulseAudioDevices.h"
#include "platform/linux/pulse/PulseCaptureBackend.h"
#include "platform/linux/pulse/SoundServerLink.h"
#include "support/SoundServer.h"

namespace tessivox::bench {
namespace {

/// How often the threads of this process were put to sleep.
double sleeps() {
    double sum = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(thread.path() / "status");
        for (std::string word; status >> word;) {
            double count = 0;
            if (word == "voluntary_ctxt_switches:" && status >> count) sum += count;
        }
    }
    return sum;
}

/// The objects that the program makes for recording, as its composition does, while none is under way.
struct Program {
    posix::EventLoop loop;
    posix::PosixFiles files{loop};
    core::JsonPreferences preferences;
    app::HeadlessFolderChooser chooser;
    app::HeadlessLoginItem loginItem;
    core::AppSettings settings;
    core::AppState state{loop};
    posix::PosixLocalTime localTime;
    pulse::SoundServerLink server;
    pulse::PulseAudioDevices devices{server};
    pulse::PulseCaptureBackend captures;
    ffmpeg::SwrConverterFactory converters;
    ffmpeg::AacEncoderFactory encoders;
    audio::AudioLevelMonitor levels{loop};
    audio::StereoAudioWriter writer;
    audio::AudioRecorder recorder;
    int changes = 0;
    base::Subscription change = devices.onChange([this] { ++changes; });

    Program(const base::StandardFolders& folders, const std::string& address)
        : preferences(files, loop, folders.configuration / "settings.json", [](const std::string&) {}),
          settings(preferences, files, folders, chooser, loginItem),
          server(loop, address),
          captures(loop, address),
          writer(loop, files, converters, encoders, audio::incompleteFolder(folders)),
          recorder({loop, files, localTime, settings, state, devices, captures, levels}, writer,
                   audio::incompleteFolder(folders)) {}

    void turnFor(double seconds) {
        const auto end = loop.after(base::fromSeconds(seconds), [this] { loop.quit(); });
        loop.run();
    }
};

base::StandardFolders foldersIn(const std::filesystem::path& folder) {
    base::StandardFolders folders;
    folders.configuration = folder / "configuration";
    folders.applicationSupport = folder / "data";
    folders.documents = folder / "documents";
    return folders;
}

void measure(Report& report, testing::SoundServerKind kind, double seconds) {
    testing::SoundServer server(kind);
    const TemporaryFolder folder;
    Program program(foldersIn(folder.path()), server.address());
    if (!finish(program.loop, program.devices.snapshot()).serverReachable) throw std::runtime_error("no server");
    auto peer = server.spawn({"pactl", "subscribe"});
    program.turnFor(1);
    const auto before = program.changes;
    const double sleepsBefore = sleeps();
    const double peerBefore = cpuSecondsOf(peer.pid());
    const Stopwatch watch(Stopwatch::Scope::process);
    program.turnFor(seconds);
    const auto cost = watch.elapsed();
    const double share = 100 * cost.cpu / cost.wall;
    report.atMost("idle on " + testing::nameOf(kind) + ", of one core", 0.1, share, "%");
    report.peer("pactl subscribe", share, 100 * (cpuSecondsOf(peer.pid()) - peerBefore) / cost.wall, "%");
    report.note(base::filled(
        "  {0} wake-ups a second, {1} device changes heard",
        {base::fixedNumber((sleeps() - sleepsBefore) / cost.wall, 2), std::to_string(program.changes - before)}));
}

int run(const Arguments& arguments) {
    Report report(arguments.isSmoke());
    const double seconds = arguments.isSmoke() ? 1 : arguments.number("--seconds", 20);
    for (const auto kind : {testing::SoundServerKind::pulseAudio, testing::SoundServerKind::pipeWire}) {
        measure(report, kind, seconds);
    }
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_idle", [&] { return tessivox::bench::run({count, values}); });
}
