#include "backend/jobs/Job.h"

#include <nlohmann/json.hpp>

namespace tessivox::backend {
namespace {

using nlohmann::json;

void putIfAny(json& place, const char* key, const std::optional<std::string>& value) {
    if (value) place[key] = *value;
}

std::optional<std::string> textIfAny(const json& place, const char* key) {
    const auto found = place.find(key);
    if (found == place.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

}  // namespace

NLOHMANN_JSON_SERIALIZE_ENUM(JobState, {{JobState::failed, "failed"},
                                        {JobState::queued, "queued"},
                                        {JobState::running, "running"},
                                        {JobState::completed, "completed"}})

void to_json(json& place, const Job& job) {
    place = {{"id", job.id},
             {"state", job.state},
             {"number", job.number},
             {"attempts", job.attempts},
             {"submitted", job.submitted},
             {"finished", job.finished},
             {"uploadBytes", job.uploadBytes},
             {"error", job.error}};
}

void from_json(const json& place, Job& job) {
    place.at("id").get_to(job.id);
    place.at("state").get_to(job.state);
    place.at("number").get_to(job.number);
    place.at("attempts").get_to(job.attempts);
    place.at("submitted").get_to(job.submitted);
    place.at("finished").get_to(job.finished);
    place.at("uploadBytes").get_to(job.uploadBytes);
    place.at("error").get_to(job.error);
}

void to_json(json& place, const JobResult& result) {
    place = {{"text", result.text}, {"duration_seconds", result.durationSeconds}, {"provider", result.provider}};
    putIfAny(place, "title", result.title);
    putIfAny(place, "gist", result.gist);
}

void from_json(const json& place, JobResult& result) {
    place.at("text").get_to(result.text);
    place.at("duration_seconds").get_to(result.durationSeconds);
    place.at("provider").get_to(result.provider);
    result.title = textIfAny(place, "title");
    result.gist = textIfAny(place, "gist");
}

std::string dumped(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

}  // namespace tessivox::backend
