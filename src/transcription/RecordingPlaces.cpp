#include "transcription/RecordingPlaces.h"

#include <utility>

namespace tessivox::transcription {

RecordingPlace RecordingPlaces::of(std::filesystem::path url) {
    std::erase_if(places_, [](const auto& place) { return place.expired(); });
    auto state = std::make_shared<RecordingPlace::State>();
    state->url = std::move(url);
    places_.push_back(state);
    return RecordingPlace(std::move(state));
}

void RecordingPlaces::moved(const std::filesystem::path& from, const std::filesystem::path& to) {
    for (const auto& weak : places_) {
        const auto place = weak.lock();
        if (place && place->url == from) place->url = to;
    }
}

void RecordingPlaces::gone(const std::filesystem::path& url) {
    for (const auto& weak : places_) {
        const auto place = weak.lock();
        if (place && place->url == url) place->isGone = true;
    }
}

}  // namespace tessivox::transcription
