#pragma once

#include <filesystem>
#include <memory>
#include <vector>

namespace tessivox::transcription {

class RecordingPlaces;

/// Where a recording is that somebody works on for a while: it follows the recording's renames. Ends before the places
/// that gave it. Main thread.
class RecordingPlace {
public:
    const std::filesystem::path& url() const { return state_->url; }
    /// Whether the recording went to the Trash meanwhile.
    bool isGone() const { return state_->isGone; }

private:
    friend class RecordingPlaces;
    struct State {
        std::filesystem::path url;
        bool isGone = false;
    };
    std::shared_ptr<State> state_;
    explicit RecordingPlace(std::shared_ptr<State> state) : state_(std::move(state)) {}
};

/// All recordings that are worked on.
class RecordingPlaces {
public:
    RecordingPlace of(std::filesystem::path url);
    void moved(const std::filesystem::path& from, const std::filesystem::path& to);
    void gone(const std::filesystem::path& url);

private:
    std::vector<std::weak_ptr<RecordingPlace::State>> places_;
};

}  // namespace tessivox::transcription
