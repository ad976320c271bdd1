#include "backend/jobs/JobStore.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <nlohmann/json.hpp>
#include <span>

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
    load();
    save();
    sweep();
    eraseExpired();
}

std::int64_t JobStore::now() const {
    return std::chrono::floor<std::chrono::seconds>(clock_()).time_since_epoch().count();
}

void JobStore::load() {
    if (!files_.exists(document_.path())) return;
    const auto document = json::parse(files_.readAll(document_.path(), kLargestDocument), nullptr, false);
    try {
        transcribed_ = document.at("transcribed").get<std::int64_t>();
        for (const auto& job : document.at("jobs")) takeUp(job.get<Job>());
    } catch (const json::exception&) {
        jobs_.clear();
        base::log("jobs.json is damaged and was moved to " + document_.keepAside().filename().string() + ".");
    }
}

/// A job of the server before. One that it was working on when it died counts as tried.
void JobStore::takeUp(Job job) {
    lastNumber_ = std::max(lastNumber_, job.number);
    job.finished = std::min(job.finished, now());  // also where the clock was set back
    if (job.state == JobState::running) job.state = JobState::queued;
    if (job.state == JobState::queued && job.attempts >= kMostAttempts) {
        job.state = JobState::failed;
        job.finished = now();
        job.error = "The transcription was interrupted " + std::to_string(job.attempts) + " times; start it again.";
    }
    const auto id = job.id;
    jobs_.insert_or_assign(id, std::move(job));
}

/// Removes what a killed server left.
void JobStore::sweep() {
    sweepFolder("uploads", [](const Job& job) { return job.isOpen(); });
    sweepFolder("sounds", [](const Job&) { return false; });
    sweepFolder("results", [](const Job& job) { return job.state == JobState::completed; });
}

void JobStore::sweepFolder(const char* name, const std::function<bool(const Job&)>& isNeeded) {
    for (const auto& entry : files_.list(folder_ / name)) {
        const auto job = jobs_.find(entry.string());
        if (job == jobs_.end() || !isNeeded(job->second)) files_.removeIfPossible(folder_ / name / entry);
    }
}

void JobStore::save() {
    const std::lock_guard saving(saving_);
    json document;
    {
        const std::lock_guard lock(mutex_);
        document["transcribed"] = transcribed_;
        document["jobs"] = json::array();
        for (const auto& [id, job] : jobs_) document["jobs"].push_back(job);
    }
    document_.replace(dumped(document));
}

void JobStore::saveIfPossible() noexcept {
    try {
        save();
    } catch (const std::exception& error) {
        logFailure("save the jobs", error);
    }
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
        const auto open = std::count_if(jobs_.begin(), jobs_.end(), [](const auto& j) { return j.second.isOpen(); });
        if (static_cast<std::size_t>(open) >= limits_.queuedJobs || jobs_.size() >= kMostKept) refuseAsFull();
        if (keptBytes() + length.value_or(0) > limits_.queuedBytes) refuseAsFull();
    }
    if (files_.freeSpace(folder_) < kReserve + length.value_or(0)) {
        throw HttpError(507, "disk_full", "The server's disk is full; free some space and try again.");
    }
    return std::make_unique<Upload>(*this, newID());
}

std::uint64_t JobStore::keptBytes() const {
    auto total = uploadingBytes_;
    for (const auto& [id, job] : jobs_) total += job.isOpen() ? job.uploadBytes : 0;
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
    Job job{.id = upload->id(), .submitted = now(), .uploadBytes = upload->size(), .error = {}};
    {
        const std::lock_guard lock(mutex_);
        job.number = ++lastNumber_;
        jobs_.emplace(job.id, job);
    }
    try {
        save();
    } catch (const base::FileError&) {
        const std::lock_guard lock(mutex_);
        jobs_.erase(job.id);
        throw;
    }
    upload->keep();
    return job.id;
}

std::optional<Job> JobStore::find(const std::string& id) const {
    const std::lock_guard lock(mutex_);
    const auto job = jobs_.find(id);
    if (job == jobs_.end()) return std::nullopt;
    return job->second;
}

JobResult JobStore::result(const std::string& id) const {
    return json::parse(files_.readAll(resultPath(id), kLargestDocument)).get<JobResult>();
}

std::optional<Job> JobStore::begin() {
    std::optional<Job> job;
    {
        const std::lock_guard lock(mutex_);
        Job* next = nullptr;
        for (auto& [id, candidate] : jobs_) {
            if (candidate.state != JobState::queued) continue;
            if (!next || candidate.number < next->number) next = &candidate;
        }
        if (!next) return std::nullopt;
        next->state = JobState::running;
        ++next->attempts;
        job = *next;
    }
    try {
        save();
    } catch (const base::FileError&) {
        release(job->id);
        throw;
    }
    return job;
}

void JobStore::complete(const std::string& id, const JobResult& result) {
    try {
        write(files_, resultPath(id), dumped(result));
    } catch (const base::FileError& error) {
        logFailure("keep a result", error);
        return fail(id, "The server could not keep the transcript: " + error.description());
    }
    finish(id, [&](Job& job) {
        job.state = JobState::completed;
        job.finished = now();
        ++transcribed_;
    });
}

void JobStore::fail(const std::string& id, const std::string& sentence) {
    finish(id, [&](Job& job) {
        job.state = JobState::failed;
        job.finished = now();
        job.error = sentence;
    });
}

void JobStore::crash(const std::string& id, const std::string& sentence) {
    const auto job = find(id);
    if (job && job->attempts >= kMostAttempts) return fail(id, sentence);
    finish(id, [](Job& j) { j.state = JobState::queued; });
}

void JobStore::release(const std::string& id) {
    finish(id, [](Job& job) {
        job.state = JobState::queued;
        --job.attempts;
    });
}

void JobStore::finish(const std::string& id, const std::function<void(Job&)>& change) noexcept {
    Job job;
    {
        const std::lock_guard lock(mutex_);
        const auto found = jobs_.find(id);
        if (found == jobs_.end()) return;
        change(found->second);
        job = found->second;
    }
    saveIfPossible();
    dropFiles(job);
}

void JobStore::dropFiles(const Job& job) {
    files_.removeIfPossible(soundPath(job.id));
    if (!job.isOpen()) files_.removeIfPossible(uploadPath(job.id));
    if (job.state != JobState::completed) files_.removeIfPossible(resultPath(job.id));
}

void JobStore::eraseExpired() {
    std::vector<std::string> expired;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [id, job] : jobs_) {
            if (!job.isOpen() && now() - job.finished >= kKept) expired.push_back(id);
        }
        for (const auto& id : expired) jobs_.erase(id);
    }
    if (expired.empty()) return;
    saveIfPossible();
    for (const auto& id : expired) files_.removeIfPossible(resultPath(id));
}

bool JobStore::hasWork() const {
    const std::lock_guard lock(mutex_);
    return std::any_of(jobs_.begin(), jobs_.end(), [](const auto& entry) { return entry.second.isOpen(); });
}

std::int64_t JobStore::transcribed() const {
    const std::lock_guard lock(mutex_);
    return transcribed_;
}

}  // namespace tessivox::backend
