#include "library/Recording.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "base/Text.h"

namespace tessivox::library {
namespace {

std::string fileURL(const std::filesystem::path& path) { return "file://" + base::percentEncoded(path.native()); }

std::string isoDate(base::WallTime time) {
    using base::paddedNumber;
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::seconds>(time - day));
    return paddedNumber(static_cast<int>(date.year()), 4) + "-" + paddedNumber(static_cast<unsigned>(date.month()), 2) +
           "-" + paddedNumber(static_cast<unsigned>(date.day()), 2) + "T" + paddedNumber(clock.hours().count(), 2) +
           ":" + paddedNumber(clock.minutes().count(), 2) + ":" + paddedNumber(clock.seconds().count(), 2) + "Z";
}

}  // namespace

void to_json(nlohmann::json& json, const SubTrack& track) {
    json = {{"url", fileURL(track.url)}, {"label", track.label}};
}

void to_json(nlohmann::json& json, const Recording& recording) {
    json = {{"id", recording.id},
            {"url", fileURL(recording.url)},
            {"date", isoDate(recording.date)},
            {"duration", recording.duration},
            {"name", recording.name},
            {"subTracks", recording.subTracks}};
}

std::string jsonText(const nlohmann::json& json) {
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace tessivox::library
