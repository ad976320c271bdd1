#include "platform/linux/ffmpeg/MediaError.h"

#include <array>
#include <cstdarg>
#include <string_view>

#include "base/Log.h"
#include "platform/linux/ffmpeg/Libav.h"

namespace tessivox::ffmpeg {
namespace {

void logLine(void* source, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING || !base::isLogging()) return;
    thread_local int isLineStart = 1;
    std::array<char, 512> line{};
    av_log_format_line2(source, level, format, arguments, line.data(), static_cast<int>(line.size()), &isLineStart);
    std::string_view text = line.data();
    while (text.ends_with('\n')) text.remove_suffix(1);
    if (!text.empty()) base::log(text);
}

}  // namespace

void check(int result, const char* sentence) {
    if (result >= 0) return;
    std::array<char, AV_ERROR_MAX_STRING_SIZE> reason{};
    av_strerror(result, reason.data(), reason.size());
    throw MediaError(result, std::string(sentence) + " (" + reason.data() + ").");
}

void redirectLog() {
    static const bool isRedirected = (av_log_set_callback(logLine), true);
    static_cast<void>(isRedirected);
}

}  // namespace tessivox::ffmpeg
