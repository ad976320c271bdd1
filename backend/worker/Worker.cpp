#include "backend/worker/Worker.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "backend/EngineFactory.h"
#include "backend/jobs/Job.h"
#include "backend/speech/LabelSpeakers.h"
#include "backend/speech/TranscriptText.h"
#include "backend/worker/DecodedSound.h"
#include "base/Error.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

using nlohmann::json;
using posix::retry;

/// What a worker is asked to do.
struct Order {
    std::string sound;    ///< the upload's path
    std::string samples;  ///< where its samples may be kept
    int attempt = 0;
    double longest = 0;  ///< seconds of sound
    EngineOptions engine;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Order, sound, samples, attempt, longest, engine)

std::string readLine() {
    std::string line;
    char c = 0;
    while (retry([&] { return ::read(STDIN_FILENO, &c, 1); }) == 1 && c != '\n') line += c;
    return line;
}

void say(const json& message) {
    const auto line = dumped(message) + "\n";
    std::string_view rest(line);
    while (!rest.empty()) {
        const auto count = retry([&] { return ::write(STDOUT_FILENO, rest.data(), rest.size()); });
        if (count < 0) std::_Exit(1);  // nobody listens any more
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
}

/// The recording that goes on at the same time comes first, and if memory runs out, the server stays.
void yieldToOthers() {
    ::setpriority(PRIO_PROCESS, 0, 10);
    const posix::Descriptor score(::open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
    if (score && ::write(score.get(), "500", 3) < 0) return;
}

/// The server holds the other end of standard input for as long as it lives.
void endWithServer() {
    std::thread([] {
        char c = 0;
        while (retry([&] { return ::read(STDIN_FILENO, &c, 1); }) > 0) {
        }
        if (::getpgrp() == ::getpid()) ::kill(0, SIGKILL);
        std::_Exit(1);
    }).detach();
}

/// What the engine for tests was told to suffer.
void sufferFaults(const Order& order) {
    const auto& fake = order.engine.fake;
    if (order.engine.engine != "fake") return;
    if (order.attempt <= fake.crashes) std::abort();
    if (order.attempt <= fake.hangs) std::this_thread::sleep_for(std::chrono::hours(24));
}

/// Tells its length too. The engine for tests needs no real sound.
std::unique_ptr<DecodedSound> decoded(const Order& order) {
    say({{"stage", "decoding"}});
    std::unique_ptr<DecodedSound> sound;
    if (order.engine.engine == "fake") {
        std::this_thread::sleep_for(std::chrono::duration<double>(order.engine.fake.decodeSeconds));
    } else {
        sound = std::make_unique<DecodedSound>(order.sound, order.samples, order.longest);
    }
    say({{"length", sound ? sound->sound().seconds() : order.engine.fake.length}});
    return sound;
}

JobResult work(const Order& order) {
    const auto engine = makeEngine(order.engine, std::filesystem::path(order.samples).parent_path());
    const auto file = decoded(order);
    const auto sound = file ? file->sound() : Sound();
    sufferFaults(order);
    say({{"stage", "transcribing"}});
    auto utterances = engine->transcribe(sound, [](double fraction) { say({{"fraction", fraction}}); });
    if (file) labelSpeakers(sound, utterances);
    JobResult result;
    result.text = transcriptText(utterances);
    result.durationSeconds = std::llround(file ? sound.seconds() : order.engine.fake.length);
    result.provider = engine->name();
    const auto headline = makeSummarizer(order.engine)->headline(result.text);
    result.title = headline.title;
    result.gist = headline.gist;
    return result;
}

}  // namespace

int runWorker() {
    yieldToOthers();
    try {
        const auto order = json::parse(readLine()).get<Order>();
        endWithServer();
        say({{"result", work(order)}});
    } catch (const base::Error& error) {
        say({{"failure", error.description()}});
    }
    // The thread that waits for the server's end is still there.
    std::_Exit(0);
}

}  // namespace tessivox::backend
