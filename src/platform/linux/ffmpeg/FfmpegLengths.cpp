#include "platform/linux/ffmpeg/FfmpegLengths.h"

#include <algorithm>
#include <chrono>

#include "platform/linux/ffmpeg/MediaError.h"
#include "platform/linux/ffmpeg/MediaInput.h"

namespace tessivox::ffmpeg {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::seconds(2);

double longestStream(const AVFormatContext& input) {
    double seconds = 0;
    for (unsigned index = 0; index < input.nb_streams; ++index) {
        const auto& stream = *input.streams[index];
        if (stream.duration != AV_NOPTS_VALUE)
            seconds = std::max(seconds, static_cast<double>(stream.duration) * av_q2d(stream.time_base));
    }
    return seconds;
}

}  // namespace

std::optional<double> FfmpegLengths::seconds(const std::filesystem::path& path) const {
    const auto isLate = [deadline = Clock::now() + kPatience] { return Clock::now() > deadline; };
    try {
        const MediaInput input(path, isLate);
        if (!input.firstSound()) return std::nullopt;
        if (input->duration == AV_NOPTS_VALUE && avformat_find_stream_info(input.get(), nullptr) < 0)
            return std::nullopt;
        if (input->duration != AV_NOPTS_VALUE) return static_cast<double>(input->duration) / AV_TIME_BASE;
        const double seconds = longestStream(*input.get());
        return seconds > 0 ? std::optional(seconds) : std::nullopt;
    } catch (const MediaError&) {
        return std::nullopt;
    }
}

}  // namespace tessivox::ffmpeg
