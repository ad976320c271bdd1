#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace tessivox::backend {

enum class JobState { queued, running, completed, failed };

/// One recording that somebody wants transcribed. Times are seconds since 1970-01-01 00:00 UTC.
struct Job {
    std::string id;
    JobState state = JobState::queued;
    std::int64_t number = 0;  ///< in the order of submission
    int attempts = 0;         ///< begun so far
    std::int64_t submitted = 0;
    std::int64_t finished = 0;      ///< if it is completed or failed
    std::uint64_t uploadBytes = 0;  ///< of the upload that is kept for it
    std::string error;              ///< why it failed, as a sentence

    bool isOpen() const { return state == JobState::queued || state == JobState::running; }
};

/// What came of a job.
struct JobResult {
    std::string text;  ///< lines "[mm:ss] Speaker A: text"; empty if nobody speaks
    std::int64_t durationSeconds = 0;
    std::string provider;
    std::optional<std::string> title;
    std::optional<std::string> gist;
};

void to_json(nlohmann::json& json, const Job& job);
void to_json(nlohmann::json& json, const JobResult& result);
/// These throw nlohmann::json::exception.
void from_json(const nlohmann::json& json, Job& job);
void from_json(const nlohmann::json& json, JobResult& result);

/// JSON without line breaks; bytes that are not UTF-8 are replaced.
std::string dumped(const nlohmann::json& json);

}  // namespace tessivox::backend
