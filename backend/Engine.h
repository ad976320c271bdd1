#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace tessivox::backend {

/// What is to be transcribed: one channel of 16-bit samples.
struct Sound {
    static constexpr int kSampleRate = 16000;  ///< Hz
    std::span<const std::int16_t> samples;

    double seconds() const { return static_cast<double>(samples.size()) / kSampleRate; }
};

/// Words that were spoken without a pause. Times in seconds from the beginning of the sound.
struct Utterance {
    double start = 0;
    double end = 0;
    std::string text;     ///< UTF-8, one line
    std::string speaker;  ///< such as "Speaker A"; empty if the engine does not tell speakers apart
};

/// Is told which part of the work is done, 0 to 1, now and then. Any thread, one call at a time.
using Progress = std::function<void(double fraction)>;

/// Turns sound into text, in a process of its own.
class Engine {
public:
    virtual ~Engine() = default;
    /// For the transcript's readers, such as "pocketsphinx".
    virtual std::string name() const = 0;
    /// In the order of their starts; nothing if nobody speaks. May use threads. Throws base::Error with a sentence that
    /// says what to do.
    virtual std::vector<Utterance> transcribe(const Sound& sound, const Progress& progress) = 0;
};

}  // namespace tessivox::backend
