#include "backend/worker/JobRunner.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>

#include "base/Log.h"

namespace tessivox::backend {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

constexpr base::Duration kStart = 10min;  // until a worker knows how long the sound is
constexpr base::Duration kLongestPause = 60s;
constexpr base::Duration kAfterFailedSave = 10s;

}  // namespace

JobRunner::JobRunner(posix::EventLoop& loop, JobStore& store, const EngineOptions& engine, const Limits& limits)
    : loop_(loop), store_(store), engine_(engine), limits_(limits) {}

JobRunner::~JobRunner() {
    if (!worker_) return;
    worker_.reset();
    store_.release(job_->id);
}

void JobRunner::wake() {
    if (!worker_ && !pause_) begin();
}

void JobRunner::begin() {
    try {
        job_ = store_.begin();
        if (job_) start();
    } catch (const std::exception& error) {
        base::log(std::string("Cannot begin a job: ") + error.what());
        pause(kAfterFailedSave);
    }
}

void JobRunner::start() {
    result_.reset();
    failure_.reset();
    crashSentence_ = "The speech engine crashed on this recording.";
    const json input{{"sound", store_.uploadPath(job_->id).string()},
                     {"samples", store_.soundPath(job_->id).string()},
                     {"attempt", job_->attempts},
                     {"longest", limits_.soundHours * 3600},
                     {"engine", engine_}};
    base::log("Job " + job_->id + " begins, attempt " + std::to_string(job_->attempts) + ".");
    try {
        worker_ = std::make_unique<WorkerProcess>(
            loop_, dumped(input),
            WorkerProcess::Handlers{[this](const std::string& line) { take(line); }, [this] { end(); }});
        allow(kStart);
    } catch (const std::exception&) {
        store_.release(job_->id);
        throw;
    }
}

void JobRunner::take(const std::string& line) {
    const auto message = json::parse(line, nullptr, false);
    if (!message.is_object()) return;
    try {
        if (message.contains("length")) {
            const auto length = message.at("length").get<double>();
            allow(base::fromSeconds(limits_.leastSeconds + length * engine_.timeFactor));
        }
        if (message.contains("result")) result_ = message.at("result").get<JobResult>();
        if (message.contains("failure")) failure_ = message.at("failure").get<std::string>();
        if (message.contains("stage")) base::log("Job " + job_->id + ": " + message.at("stage").get<std::string>());
    } catch (const json::exception&) {
        base::log("The worker said something that makes no sense.");
    }
}

void JobRunner::allow(base::Duration time) {
    deadline_ = loop_.after(time, [this] {
        crashSentence_ = "The speech engine took too long for this recording.";
        worker_->kill();
    });
}

void JobRunner::end() {
    deadline_.reset();
    worker_.reset();
    const auto id = std::exchange(job_, std::nullopt)->id;
    if (result_) {
        store_.complete(id, *result_);
    } else if (failure_) {
        store_.fail(id, *failure_);
    } else {
        base::log("Job " + id + ": the worker crashed or was ended.");
        store_.crash(id, crashSentence_);
        ++crashes_;
        return pause(std::min<base::Duration>(kLongestPause, 1s * (1 << std::min(crashes_ - 1, 6))));
    }
    crashes_ = 0;
    begin();
}

void JobRunner::pause(base::Duration time) {
    pause_ = loop_.after(time, [this] { begin(); });
}

}  // namespace tessivox::backend
