#pragma once

#include <string_view>
#include <vector>

#include "backend/Engine.h"

namespace tessivox::backend {

constexpr std::size_t kMostCaptionBytes = std::size_t{64} << 20U;

/// What a speech program or service wrote, recognised by its contents:
///  - SubRip (SRT) and WebVTT (W3C), with voice tags as speakers;
///  - lines "[00:00:01.000 --> 00:00:02.000]  text", as whisper.cpp prints them;
///  - JSON {"transcription": [{"offsets": {"from", "to"}, "text"}]}, milliseconds, as whisper.cpp's -oj writes it;
///  - JSON {"segments": [{"start", "end", "text", "speaker"?}]}, seconds, as OpenAI's verbose_json and others; also
///  such
///    an array alone; without segments {"text"};
///  - plain text, whose times are estimated from the length of its lines.
/// Texts are one line each, times lie within the sound's `seconds` and are in order. Nothing if there are no words.
/// Throws EngineError if the output is too large or its JSON makes no sense.
std::vector<Utterance> parseCaptions(std::string_view output, double seconds);

}  // namespace tessivox::backend
