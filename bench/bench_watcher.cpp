// What noticing calls costs while nobody calls, with a private sound server on which other things happen: volumes move,
// a program plays for a moment, another records what is played.
//   bench_watcher [--smoke] [--seconds N]
#include <fstream>
#include <string>

#include "LoopRun.h"
#include "Measure.h"
#include "Report.h"
#include "base/Text.h"
#include "platform/linux/posix/EventLoop.h"
#include "sound/Watcher.h"
#include "support/SoundServer.h"

namespace tessivox::bench {
namespace {

constexpr auto kElsewhere = R"(
while :; do
    pactl set-sink-volume speakers $((RANDOM % 60 + 20))%
    pactl set-source-volume mic $((RANDOM % 60 + 20))%
    timeout 0.5 pacat --raw /dev/zero
    timeout 0.2 parec -d speakers.monitor >/dev/null
    sleep 1
done)";

double residentMegabytes() {
    std::ifstream status("/proc/self/status");
    double kilobytes = 0;
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") status >> kilobytes;
    }
    return kilobytes / 1024;
}

void turnFor(posix::EventLoop& loop, double seconds) {
    const auto end = loop.after(base::fromSeconds(seconds), [&] { loop.quit(); });
    loop.run();
}

void measure(Report& report, testing::SoundServerKind kind, double seconds) {
    testing::SoundServer server(kind);
    posix::EventLoop loop;
    testing::Watcher watcher(loop, server.address());
    int events = 0;
    int calls = 0;
    const auto news = watcher.link.onNews([&](pulse::ServerNews) { ++events; });
    const auto started = watcher.detector.callStarted.observe([&](const std::string&) { ++calls; });
    watcher.entries.refresh();
    auto elsewhere = server.spawn({"bash", "-c", kElsewhere});
    turnFor(loop, 2);
    events = 0;
    const Stopwatch watch(Stopwatch::Scope::process);
    turnFor(loop, seconds);
    const auto cost = watch.elapsed();
    const auto name = " on " + testing::nameOf(kind);
    report.atMost("watching" + name + ", of one core", 0.1, 100 * cost.cpu / cost.wall, "%");
    report.atMost("watching" + name + ", in memory", 60, residentMegabytes(), "MB");
    report.note(base::filled("  {0} events a second, {1} calls",
                             {base::fixedNumber(events / cost.wall, 2), std::to_string(calls)}));
    if (calls > 0) throw std::runtime_error("something was taken for a call");
}

int run(const Arguments& arguments) {
    Report report(arguments.isSmoke());
    const double seconds = arguments.isSmoke() ? 1 : arguments.number("--seconds", 60);
    for (const auto kind : {testing::SoundServerKind::pulseAudio, testing::SoundServerKind::pipeWire}) {
        measure(report, kind, seconds);
    }
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_watcher", [&] { return tessivox::bench::run({count, values}); });
}
