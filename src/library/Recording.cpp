#include "library/Recording.h"

#include <nlohmann/json.hpp>

#include "base/IsoTime.h"
#include "base/Text.h"

namespace tessivox::library {
namespace {

std::string fileURL(const std::filesystem::path& path) { return "file://" + base::percentEncoded(path.native()); }

}  // namespace

void to_json(nlohmann::json& json, const SubTrack& track) {
    json = {{"url", fileURL(track.url)}, {"label", track.label}};
}

void to_json(nlohmann::json& json, const Recording& recording) {
    json = {{"id", recording.id},
            {"url", fileURL(recording.url)},
            {"date", base::IsoTime(recording.date).view()},
            {"duration", recording.duration},
            {"name", recording.name},
            {"subTracks", recording.subTracks}};
}

std::string jsonText(const nlohmann::json& json) {
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace tessivox::library
