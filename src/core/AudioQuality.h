#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace tessivox::core {

/// The choice of bitrate for recordings.
enum class AudioQuality { low, medium, high };

/// All of them, in the order in which they are offered.
inline constexpr std::array kAudioQualities{AudioQuality::low, AudioQuality::medium, AudioQuality::high};

/// The name under which it is stored.
std::string_view rawValue(AudioQuality quality);
/// Absent if no quality has that name.
std::optional<AudioQuality> audioQuality(std::string_view rawValue);
/// The localized name that users see.
std::string label(AudioQuality quality);
/// Bits per second of a stereo file.
int bitrate(AudioQuality quality);

}  // namespace tessivox::core
