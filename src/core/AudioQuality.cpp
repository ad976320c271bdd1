#include "core/AudioQuality.h"

#include <algorithm>

#include "base/Text.h"

namespace tessivox::core {

std::string_view rawValue(AudioQuality quality) {
    switch (quality) {
        case AudioQuality::low:
            return "low";
        case AudioQuality::medium:
            return "medium";
        case AudioQuality::high:
            return "high";
    }
    return {};
}

std::optional<AudioQuality> audioQuality(std::string_view name) {
    const auto found = std::ranges::find(kAudioQualities, name, rawValue);
    return found == kAudioQualities.end() ? std::nullopt : std::optional(*found);
}

std::string label(AudioQuality quality) {
    switch (quality) {
        case AudioQuality::low:
            return base::localized("Low (64 kbps)");
        case AudioQuality::medium:
            return base::localized("Medium (128 kbps)");
        case AudioQuality::high:
            return base::localized("High (256 kbps)");
    }
    return {};
}

int bitrate(AudioQuality quality) {
    switch (quality) {
        case AudioQuality::low:
            return 64000;
        case AudioQuality::medium:
            return 128000;
        case AudioQuality::high:
            return 256000;
    }
    return 0;
}

}  // namespace tessivox::core
