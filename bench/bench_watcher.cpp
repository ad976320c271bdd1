// What the whole program costs while nobody calls, beside private sound servers on which other things happen: volumes
// move, a program plays for a moment, another records what is played.
//   bench_watcher [--smoke] [--seconds N]
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Measure.h"
#include "Report.h"
#include "support/PrivateBus.h"
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

void wait(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

/// The program in a home of its own, with a session bus and a sound server.
class Watcher {
public:
    explicit Watcher(testing::SoundServerKind kind)
        : server_(kind), elsewhere_(server_.spawn({"bash", "-c", kElsewhere})) {
        const auto home = folder_.path().string();
        const auto bus = "DBUS_SESSION_BUS_ADDRESS=" + bus_.address();
        program_ = {{"sh", "-c", "exec \"$0\" run --headless --verbose 2>\"$HOME/log\"", TESSIVOX_PROGRAM},
                    {"HOME=" + home, "XDG_CONFIG_HOME=" + home + "/config", "XDG_DATA_HOME=" + home + "/data",
                     "XDG_STATE_HOME=" + home + "/state", "XDG_RUNTIME_DIR=" + home, bus,
                     "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere", "PULSE_SERVER=" + server_.address()}};
        for (int tries = 0; tries < 200 && !hasSaid("Sent: permission_state"); ++tries) wait(0.1);
        if (!hasSaid("Connected to the sound server"))
            throw std::runtime_error("the program does not start:\n" + said());
    }

    void begin() { cpuBefore_ = cpuSecondsOf(program_.pid()); }
    void judge(Report& report, double seconds) const {
        const auto name = testing::nameOf(server_.kind());
        const double cpu = cpuSecondsOf(program_.pid()) - cpuBefore_;
        report.atMost("watching on " + name + ", of one core", 0.1, 100 * cpu / seconds, "%");
        report.atMost("watching on " + name + ", in memory", 60, residentMegabytes(), "MB");
        if (hasSaid("call_detected")) throw std::runtime_error("something was taken for a call:\n" + said());
    }

private:
    TemporaryFolder folder_;
    testing::PrivateBus bus_{folder_.path()};
    testing::SoundServer server_;
    testing::ChildProcess elsewhere_;
    testing::ChildProcess program_;
    double cpuBefore_ = 0;

    std::string said() const {
        std::ifstream log(folder_.path() / "log");
        return {std::istreambuf_iterator<char>(log), {}};
    }
    bool hasSaid(const std::string& part) const { return said().find(part) != std::string::npos; }
    double residentMegabytes() const {
        std::ifstream status("/proc/" + std::to_string(program_.pid()) + "/status");
        double kilobytes = 0;
        for (std::string word; status >> word;) {
            if (word == "VmRSS:") status >> kilobytes;
        }
        return kilobytes / 1024;
    }
};

int run(const Arguments& arguments) {
    Report report(arguments.isSmoke());
    const double seconds = arguments.isSmoke() ? 1 : arguments.number("--seconds", 60);
    Watcher watchers[] = {Watcher(testing::SoundServerKind::pulseAudio), Watcher(testing::SoundServerKind::pipeWire)};
    wait(2);
    for (auto& watcher : watchers) watcher.begin();
    wait(seconds);
    for (const auto& watcher : watchers) watcher.judge(report, seconds);
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_watcher", [&] { return tessivox::bench::run({count, values}); });
}
