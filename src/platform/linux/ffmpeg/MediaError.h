#pragma once

#include <cerrno>
#include <string>
#include <utility>

#include "base/Error.h"

namespace tessivox::ffmpeg {

/// What FFmpeg's libraries refused. domain() is "ffmpeg", code() their AVERROR value.
class MediaError : public base::Error {
public:
    MediaError(int code, std::string description) : Error("ffmpeg", code, std::move(description)) {}
};

/// Throws MediaError if a result of the libraries is negative: "<sentence> (<their reason>)."
void check(int result, const char* sentence);

inline constexpr const char* kOutOfMemory = "There is not enough memory to encode sound; close other applications";

/// What one of the libraries' functions has made. Throws MediaError if that is null.
template <typename Owner>
Owner made(Owner object) {
    if (!object) check(-ENOMEM, kOutOfMemory);
    return object;
}

/// Sends the libraries' warnings to base::log, once for the process; otherwise they go to standard error. Any thread.
void redirectLog();

}  // namespace tessivox::ffmpeg
