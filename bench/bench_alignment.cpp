// How far apart the two channels of a recording are, where both hear the same clicks at the same moment: `tessivox
// record` and, beside it on the same private sound server, the ffmpeg program with both sources as inputs.
//   bench_alignment [--smoke] [--steady SECONDS] [--stall SECONDS]
#include <signal.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Measure.h"
#include "Report.h"
#include "base/Text.h"
#include "support/DecodeAudio.h"
#include "support/SoundPlayer.h"
#include "support/SoundServer.h"

namespace tessivox::bench {
namespace {

using testing::ChildProcess;
using testing::SoundServer;
using testing::SoundServerKind;
using Path = std::filesystem::path;

/// Far longer than any offset, so that it is plain which clicks belong together.
constexpr auto kClickPeriod = "700";
constexpr double kLongestOffset = 0.35;

void wait(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

/// Takes the microphone's sound away and gives it back.
class Stall {
public:
    explicit Stall(SoundServer& server) : server_(server) {
        if (server_.kind() == SoundServerKind::pulseAudio) {
            server_.run({"pactl", "suspend-source", "roommic", "1"});
            return;
        }
        // The ports by their numbers: programs may give both of their streams one name.
        std::istringstream lines(server_.run({"pw-link", "-o", "-l", "-I"}));
        std::string output;
        bool isMicrophone = false;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string first;
            std::string second;
            std::string third;
            words >> first >> second >> third;
            if (second == "|->" && isMicrophone) {
                links_.push_back({output, third});
                server_.run({"pw-link", "-d", output, third});
            } else if (second != "|->" && second != "|<-") {
                output = first;
                isMicrophone = second.starts_with("roommic:capture");
            }
        }
        if (links_.empty()) throw std::runtime_error("nobody listens to the microphone");
    }
    ~Stall() {
        if (server_.kind() == SoundServerKind::pulseAudio) server_.run({"pactl", "suspend-source", "roommic", "0"});
        for (const auto& [output, input] : links_) server_.run({"pw-link", output, input});
    }

private:
    SoundServer& server_;
    std::vector<std::pair<std::string, std::string>> links_;
};

/// Offsets, right channel after left, in milliseconds, before and after the longest silence of the left one.
struct Offsets {
    std::vector<double> before;
    std::vector<double> after;
};

std::vector<double> clicksOf(const testing::DecodedAudio& audio, int channel) {
    std::vector<double> result;
    for (const auto time : testing::findClicks(audio.channel(channel), {})) {
        result.push_back(base::toSeconds(time.time_since_epoch()));
    }
    return result;
}

Offsets offsetsOf(const Path& file, bool hasStall) {
    const auto audio = testing::decodeAudio(file);
    const auto left = clicksOf(audio, 0);
    const auto right = clicksOf(audio, 1);
    if (left.size() < 3 || right.size() < 3) throw std::runtime_error("no clicks in " + file.string());
    double split = left.back() + 1;
    double longest = 0;
    for (std::size_t index = 1; hasStall && index < left.size(); ++index) {
        if (left[index] - left[index - 1] <= longest) continue;
        longest = left[index] - left[index - 1];
        split = left[index];
    }
    Offsets result;
    for (const double click : left) {
        const auto distance = [click](double one, double other) {
            return std::abs(one - click) < std::abs(other - click);
        };
        const double offset = *std::ranges::min_element(right, distance) - click;
        if (std::abs(offset) > kLongestOffset) continue;
        (click < split ? result.before : result.after).push_back(1e3 * offset);
    }
    return result;
}

/// The offset that 95 in 100 clicks stay below, either way.
double worstUsual(std::vector<double> offsets) {
    if (offsets.empty()) throw std::runtime_error("no click is heard on both sides");
    for (auto& offset : offsets) offset = std::abs(offset);
    std::ranges::sort(offsets);
    return offsets[(offsets.size() * 95 + 99) / 100 - 1];
}

std::string describe(const std::vector<double>& offsets) {
    const auto [least, most] = std::ranges::minmax(offsets);
    return base::filled("{0} clicks, median {1} ms, from {2} to {3}",
                        {std::to_string(offsets.size()), base::fixedNumber(median(offsets), 3),
                         base::fixedNumber(least, 3), base::fixedNumber(most, 3)});
}

void compare(Report& report, const std::string& what, double limit, const std::vector<double>& ours,
             const std::vector<double>& theirs) {
    report.atMost(what + ", 95 of 100 clicks within", limit, worstUsual(ours), "ms");
    report.note("  " + describe(ours));
    if (theirs.empty()) {
        report.note("  peer: ffmpeg, two pulse inputs: no click within " + base::fixedNumber(1e3 * kLongestOffset, 0) +
                    " ms of its twin");
        return;
    }
    report.peer("ffmpeg, two pulse inputs, aresample=async=1", worstUsual(ours), worstUsual(theirs), "ms");
    report.note("    " + describe(theirs));
}

ChildProcess startPeer(SoundServer& server, const Path& file) {
    return server.spawn({"ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "pulse", "-i", "roommic", "-f", "pulse", "-i",
                         "room.monitor", "-filter_complex",
                         "[0:a]aresample=async=1,pan=mono|c0=c0[a];[1:a]aresample=async=1,pan=mono|c0=c0[b];"
                         "[a][b]amerge=inputs=2",
                         "-c:a", "pcm_f32le", file});
}

void measure(Report& report, SoundServerKind kind, double steady, double stall) {
    const TemporaryFolder folder;
    SoundServer server(kind);
    server.addRoom();
    server.setDefaultSink("room");
    auto player = server.play("room", {"clicks", kClickPeriod});
    const auto ourFile = folder.path() / "tessivox.m4a";
    const auto peerFile = folder.path() / "peer.wav";
    auto ours =
        server.spawn({TESSIVOX_PROGRAM, "record", "--mic", "roommic", "--quality", "high", "--output", ourFile});
    auto peer = startPeer(server, peerFile);
    wait(2 + steady);
    if (stall > 0) {
        {
            const Stall silence(server);
            wait(stall);
        }
        wait(steady);
    }
    ::kill(ours.pid(), SIGINT);
    ::kill(peer.pid(), SIGINT);
    if (ours.wait() != 0) throw std::runtime_error("tessivox record failed");
    peer.wait();
    const auto mine = offsetsOf(ourFile, stall > 0);
    const auto theirs = offsetsOf(peerFile, stall > 0);
    const auto name = testing::nameOf(kind);
    compare(report, name + ", steady", 2, mine.before, theirs.before);
    if (stall > 0) {
        compare(report, name + ", after a stall of " + base::fixedNumber(stall, 0) + " s", 5, mine.after, theirs.after);
    }
}

int run(const Arguments& arguments) {
    Report report(arguments.isSmoke());
    const double steady = arguments.isSmoke() ? 3 : arguments.number("--steady", 30);
    const double stall = arguments.isSmoke() ? 0 : arguments.number("--stall", 5);
    measure(report, SoundServerKind::pulseAudio, steady, stall);
    if (!arguments.isSmoke()) measure(report, SoundServerKind::pipeWire, steady, stall);
    return report.exitStatus();
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    return tessivox::bench::runOrExplain("bench_alignment", [&] { return tessivox::bench::run({count, values}); });
}
