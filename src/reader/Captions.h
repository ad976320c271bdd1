#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "reader/ReaderParsing.h"

namespace tessivox::reader {

/// What is shown while something is said. Times are seconds; the views are those of the segments.
struct Caption {
    double start = 0;
    double end = 0;
    std::string_view speaker;             ///< empty if not known
    std::vector<std::string_view> lines;  ///< none is blank
};

/// The captions of a transcript, by their start. One lasts until the next later one begins, the last as long as its
/// text takes to read. What has no time belongs to what stands before it: a line goes on with that caption, another
/// speaker's has the same time. What has no text is left out.
std::vector<Caption> captionsOf(std::span<const Segment> segments);

/// SubRip: numbered captions, the speaker before the text. It has no way to escape what players take for markup, so
/// there a zero-width space parts it: after "<" and "{", and within "-->".
std::string srtText(std::span<const Segment> segments);

/// WebVTT (https://www.w3.org/TR/webvtt1/): the speaker as a voice tag, "&", "<" and ">" as character references.
std::string vttText(std::span<const Segment> segments);

}  // namespace tessivox::reader
