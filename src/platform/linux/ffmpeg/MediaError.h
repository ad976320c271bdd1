#pragma once

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

/// Sends the libraries' warnings to base::log, once for the process; otherwise they go to standard error. Any thread.
void redirectLog();

}  // namespace tessivox::ffmpeg
