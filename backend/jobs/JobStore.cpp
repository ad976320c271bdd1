#include "backend/jobs/JobStore.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <span>
#include <system_error>

#include "backend/http/HttpError.h"
#include "backend/jobs/Upload.h"
#include "base/Log.h"

namespace tessivox::backend {
namespace {

using nlohmann::json;

constexpr std::size_t kLargestDocument = 64 << 20;  // bytes
constexpr std::size_t kMostKept = 20000;            // jobs, finished ones included

void write(base::Files& files, const base::Files::Path& path, const std::string& text) {
    files.removeIfPossible(path);
    const auto file = files.create(path);
    file->append(std::as_bytes(std::span(text)));
    file->sync();
    files.syncFolder(path.parent_path());
}

[[noreturn]] void refuseAsFull() {
    throw HttpError(503, "queue_full", "Too many recordings are waiting; try again later.");
}

void logFailure(const char* what, const std::exception& error) {
    base::log(std::string("Cannot ") + what + ": " + error.what());
}

}  // namespace

JobStore::JobStore(base::Files& files, Path folder, Limits limits, Clock clock, base::RandomBytes random)
    : files_(files),
      folder_(std::move(folder)),
      limits_(limits),
      clock_(std::move(clock)),
      random_(std::move(random)),
      document_(files_, folder_ / "jobs.json") {
    for (const auto* name : {"uploads", "sounds", "results"}) files_.makeFolders(folder_ / name);
    change([this](State& state) { load(state); });
    sweep();
    eraseExpired();
}

std::int64_t JobStore::now() const {
    return std::chrono::floor<std::chrono::seconds>(clock_()).time_since_epoch().count();
}

void JobStore::load(State& state) {
    if (!files_.exists(document_.path())) return;
    const auto document = json::parse(files_.readAll(document_.path(), kLargestDocument), nullptr, false);
    try {
        document.at("transcribed").get_to(state.transcribed);
        for (const auto& job : document.at("jobs")) takeUp(state, job.get<Job>());
    } catch (const json::exception&) {
        state = {};
        base::log("jobs.json is damaged and was moved to " + document_.keepAside().filename().string() + ".");
    }
}

/// A job of the server before. One that it was working on when it died counts as tried.
void JobStore::takeUp(State& state, Job job) {
    state.lastNumber = std::max(state.lastNumber, job.number);
    job.finished = std::min(job.finished, now());  // also where the clock was set back
    if (job.state == JobState::running) job.state = JobState::queued;
    if (job.state == JobState::queued && job.attempts >= kMostAttempts) {
        job.state = JobState::failed;
        job.finished = now();
        job.error = "The transcription was interrupted " + std::to_string(job.attempts) + " times; start it again.";
    }
    const auto id = job.id;
    state.jobs.insert_or_assign(id, std::move(job));
}

/// Removes what a killed server left.
void JobStore::sweep() {
    sweepFolder("uploads", [](const Job& job) { return job.isOpen(); });
    sweepFolder("sounds", [](const Job&) { return false; });
    sweepFolder("results", [](const Job& job) { return job.state == JobState::completed; });
}

void JobStore::sweepFolder(const char* name, const std::function<bool(const Job&)>& isNeeded) {
    for (const auto& entry : files_.list(folder_ / name)) {
        const auto job = find(entry.string());
        if (job && isNeeded(*job)) continue;
        if (files_.removeIfPossible(folder_ / name / entry)) continue;
        std::error_code stays;  // a folder of a speech program that was cut off may lie here too
        std::filesystem::remove_all(folder_ / name / entry, stays);
    }
}

void JobStore::change(const Change& change) {
    const std::lock_guard saving(saving_);
    auto next = snapshot();
    change(next);
    save(next);
    const std::lock_guard lock(mutex_);
    state_ = std::move(next);
}

void JobStore::changeAnyway(const Change& change) {
    const std::lock_guard saving(saving_);
    auto next = snapshot();
    change(next);
    try {
        save(next);
    } catch (const base::FileError& error) {
        logFailure("save the jobs", error);
    }
    const std::lock_guard lock(mutex_);
    state_ = std::move(next);
}

void JobStore::save(const State& state) {
    json document{{"transcribed", state.transcribed}, {"jobs", json::array()}};
    for (const auto& [id, job] : state.jobs) document["jobs"].push_back(job);
    document_.replace(dumped(document));
}

JobStore::State JobStore::snapshot() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

std::string JobStore::newID() const {
    std::array<std::byte, 16> bytes{};
    random_(bytes);
    return base::uuidText(bytes);
}

std::unique_ptr<Upload> JobStore::beginUpload(std::optional<std::uint64_t> length) {
    if (length && *length > limits_.uploadBytes) {
        throw HttpError(413, "too_large", "The recording is larger than the server takes; see --max-upload.");
    }
    {
        const std::lock_guard lock(mutex_);
        const auto& jobs = state_.jobs;
        const auto open = std::count_if(jobs.begin(), jobs.end(), [](const auto& j) { return j.second.isOpen(); });
        if (static_cast<std::size_t>(open) >= limits_.queuedJobs || jobs.size() >= kMostKept) refuseAsFull();
        if (keptBytes() + length.value_or(0) > limits_.queuedBytes) refuseAsFull();
    }
    if (files_.freeSpace(folder_) < kReserve + length.value_or(0)) {
        throw HttpError(507, "disk_full", "The server's disk is full; free some space and try again.");
    }
    return std::make_unique<Upload>(*this, newID());
}

std::uint64_t JobStore::keptBytes() const {
    auto total = uploadingBytes_;
    for (const auto& [id, job] : state_.jobs) total += job.isOpen() ? job.uploadBytes : 0;
    return total;
}

void JobStore::reserve(std::uint64_t bytes) {
    const std::lock_guard lock(mutex_);
    if (keptBytes() + bytes > limits_.queuedBytes) refuseAsFull();
    uploadingBytes_ += bytes;
}

void JobStore::unreserve(std::uint64_t bytes) {
    const std::lock_guard lock(mutex_);
    uploadingBytes_ -= bytes;
}

std::string JobStore::submit(std::unique_ptr<Upload> upload) {
    upload->finish();
    Job job;
    job.id = upload->id();
    job.submitted = now();
    job.uploadBytes = upload->size();
    change([&](State& state) {
        job.number = ++state.lastNumber;
        state.jobs.emplace(job.id, job);
    });
    upload->keep();
    return job.id;
}

std::optional<Job> JobStore::find(const std::string& id) const {
    const std::lock_guard lock(mutex_);
    const auto job = state_.jobs.find(id);
    if (job == state_.jobs.end()) return std::nullopt;
    return job->second;
}

JobResult JobStore::result(const std::string& id) const {
    return json::parse(files_.readAll(resultPath(id), kLargestDocument)).get<JobResult>();
}

std::optional<Job> JobStore::begin() {
    std::optional<Job> begun;
    if (!hasWork()) return begun;
    change([&](State& state) {
        Job* next = nullptr;
        for (auto& [id, job] : state.jobs) {
            if (job.state == JobState::queued && (!next || job.number < next->number)) next = &job;
        }
        if (!next) return;
        next->state = JobState::running;
        ++next->attempts;
        begun = *next;
    });
    return begun;
}

void JobStore::complete(const std::string& id, const JobResult& result) {
    try {
        write(files_, resultPath(id), dumped(result));
    } catch (const base::FileError& error) {
        logFailure("keep a result", error);
        return fail(id, "The server could not keep the transcript: " + error.description());
    }
    finish(id, [&](Job& job, State& state) {
        job.state = JobState::completed;
        job.finished = now();
        ++state.transcribed;
    });
}

void JobStore::fail(const std::string& id, const std::string& sentence) {
    finish(id, [&](Job& job, State&) {
        job.state = JobState::failed;
        job.finished = now();
        job.error = sentence;
    });
}

void JobStore::crash(const std::string& id, const std::string& sentence) {
    const auto job = find(id);
    if (job && job->attempts >= kMostAttempts) return fail(id, sentence);
    finish(id, [](Job& j, State&) { j.state = JobState::queued; });
}

void JobStore::release(const std::string& id) {
    finish(id, [](Job& job, State&) {
        job.state = JobState::queued;
        --job.attempts;
    });
}

void JobStore::finish(const std::string& id, const std::function<void(Job&, State&)>& change) {
    changeAnyway([&](State& state) {
        if (const auto job = state.jobs.find(id); job != state.jobs.end()) change(job->second, state);
    });
    if (const auto job = find(id)) dropFiles(*job);
}

void JobStore::dropFiles(const Job& job) {
    files_.removeIfPossible(soundPath(job.id));
    if (!job.isOpen()) files_.removeIfPossible(uploadPath(job.id));
    if (job.state != JobState::completed) files_.removeIfPossible(resultPath(job.id));
}

void JobStore::eraseExpired() {
    std::vector<std::string> expired;
    const auto now = this->now();
    const auto state = snapshot();
    for (const auto& [id, job] : state.jobs) {
        if (!job.isOpen() && now - job.finished >= kKept) expired.push_back(id);
    }
    if (expired.empty()) return;
    changeAnyway([&](State& next) {
        for (const auto& id : expired) next.jobs.erase(id);
    });
    for (const auto& id : expired) files_.removeIfPossible(resultPath(id));
}

bool JobStore::hasWork() const {
    const std::lock_guard lock(mutex_);
    return std::any_of(state_.jobs.begin(), state_.jobs.end(), [](const auto& entry) { return entry.second.isOpen(); });
}

std::int64_t JobStore::transcribed() const {
    const std::lock_guard lock(mutex_);
    return state_.transcribed;
}

}  // namespace tessivox::backend
