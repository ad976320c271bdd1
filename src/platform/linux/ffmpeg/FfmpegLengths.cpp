#include "platform/linux/ffmpeg/FfmpegLengths.h"

#include <algorithm>
#include <chrono>
#include <string>

#include "platform/linux/ffmpeg/Libav.h"
#include "platform/linux/ffmpeg/MediaError.h"

namespace tessivox::ffmpeg {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::seconds(2);

struct CloseInput {
    void operator()(AVFormatContext* input) const noexcept { avformat_close_input(&input); }
};
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

int isLate(void* deadline) { return Clock::now() > *static_cast<const Clock::time_point*>(deadline) ? 1 : 0; }

struct Options {
    AVDictionary* values = nullptr;

    Options() {
        // A playlist that calls itself audio must not fetch what it names.
        av_dict_set(&values, "format_whitelist", "mov,mp3,wav,aiff,caf", 0);
        av_dict_set(&values, "protocol_whitelist", "file", 0);
    }
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    ~Options() { av_dict_free(&values); }
};

/// With its protocol named, so that no part of a file name is taken for one.
Input open(const std::filesystem::path& path, Clock::time_point& deadline) {
    auto* input = avformat_alloc_context();
    if (!input) return nullptr;
    input->interrupt_callback = {isLate, &deadline};
    Options options;
    // On failure it frees what it was given.
    if (avformat_open_input(&input, ("file:" + path.string()).c_str(), nullptr, &options.values) < 0) return nullptr;
    return Input(input);
}

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
    redirectLog();
    auto deadline = Clock::now() + kPatience;
    const auto input = open(path, deadline);
    if (!input) return std::nullopt;
    if (input->duration == AV_NOPTS_VALUE && avformat_find_stream_info(input.get(), nullptr) < 0) return std::nullopt;
    if (input->duration != AV_NOPTS_VALUE) return static_cast<double>(input->duration) / AV_TIME_BASE;
    const double seconds = longestStream(*input);
    return seconds > 0 ? std::optional(seconds) : std::nullopt;
}

}  // namespace tessivox::ffmpeg
