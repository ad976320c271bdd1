#include "app/RecordDisplay.h"

#include <algorithm>
#include <cmath>

#include "base/Text.h"
#include "core/AppState.h"

namespace tessivox::app {
namespace {

using base::localized;

constexpr std::size_t kLongestBar = 20;
constexpr std::size_t kShortestBar = 4;

std::string phaseText(const RecordView& view) {
    switch (view.phase) {
        case RecordView::Phase::starting:
            return localized("Starting");
        case RecordView::Phase::recording:
            return localized("Recording");
        case RecordView::Phase::paused:
            return localized("Paused");
        case RecordView::Phase::saving:
            return localized("Saving");
    }
    return {};
}

std::string bar(float level, std::size_t length) {
    const float bounded = std::isnan(level) ? 0.0F : std::clamp(level, 0.0F, 1.0F);
    const auto filled = static_cast<std::size_t>(std::lround(bounded * static_cast<float>(length)));
    return "[" + std::string(filled, '#') + std::string(length - filled, '.') + "]";
}

std::string meters(const RecordView& view, std::size_t length) {
    std::string text;
    if (view.microphoneLevel) text += "  " + localized("mic") + " " + bar(*view.microphoneLevel, length);
    if (view.systemAudioLevel) text += "  " + localized("system") + " " + bar(*view.systemAudioLevel, length);
    return text;
}

/// The longest meters that fit into so many columns; empty if none do.
std::string fittingMeters(const RecordView& view, std::size_t columns) {
    for (auto length = kLongestBar; length >= kShortestBar; --length) {
        if (auto text = meters(view, length); text.size() <= columns) return text;
    }
    return {};
}

std::string savingText(const RecordView& view) {
    if (view.encodingProgress > 0) return base::fixedNumber(std::min(view.encodingProgress, 1.0) * 100, 0) + " %";
    return "(" + core::AppState::formattedDuration(base::toSeconds(view.saving)) + ")";
}

std::string keysHint(const RecordView& view) {
    if (!view.takesKeys) return {};
    return "  " + localized(view.phase == RecordView::Phase::paused ? "p resume, q stop" : "p pause, q stop");
}

}  // namespace

std::string recordLine(const RecordView& view, std::size_t columns) {
    const auto time = core::AppState::formattedDuration(base::toSeconds(view.elapsed));
    if (view.phase == RecordView::Phase::starting) return phaseText(view).substr(0, columns);
    auto line = phaseText(view) + " " + time;
    if (line.size() > columns) return time.substr(0, columns);
    if (view.phase == RecordView::Phase::saving) {
        const auto busy = "  " + savingText(view);
        return line.size() + busy.size() <= columns ? line + busy : line;
    }
    const auto hint = keysHint(view);
    const auto smallest = meters(view, kShortestBar).size();
    const bool hasRoomForHint = line.size() + smallest + hint.size() <= columns;
    line += fittingMeters(view, columns - line.size() - (hasRoomForHint ? hint.size() : 0));
    return hasRoomForHint ? line + hint : line;
}

}  // namespace tessivox::app
