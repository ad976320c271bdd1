#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/Engine.h"

namespace tessivox::backend {

/// Collects what the readers of single formats find, within bounds and in one shape.
class Captions {
public:
    /// Times are clamped to the sound's length in seconds.
    explicit Captions(double seconds) : seconds_(seconds) {}

    /// Text and speaker as they came. Throws EngineError past 200,000 of them.
    void add(double start, double end, std::string_view text, std::string_view speaker = {});
    /// Words without a time: they share the sound by their lengths.
    void addUntimed(std::string_view text);
    /// In the order of their starts.
    std::vector<Utterance> taken();

private:
    double seconds_;
    std::vector<Utterance> utterances_;
};

/// Reads lines with times, SRT, WebVTT and whisper.cpp's own. False if there is not one.
bool readTimedLines(std::string_view text, Captions& captions);
/// Throws EngineError if the text, which begins like JSON, is none or holds no captions; false if it begins with "["
/// and is no JSON: such are lines of text, too.
bool readCaptionJson(std::string_view text, Captions& captions);

}  // namespace tessivox::backend
