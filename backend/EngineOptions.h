#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace tessivox::backend {

/// How the engine for tests behaves.
struct FakeOptions {
    std::string text = "Hello from the fake engine.";  ///< what it hears; empty for silence
    double seconds = 0;                                ///< how long it works, in all segments together
    double decodeSeconds = 0;                          ///< how long the decoding before it takes
    double length = 60;                                ///< of any sound, seconds
    int crashes = 0;                                   ///< it crashes in that many first attempts at each job
    int hangs = 0;                                     ///< it hangs in that many first attempts at each job
};

/// What the worker process has to know of the server's options.
struct EngineOptions {
    std::string engine = "pocketsphinx";  ///< "pocketsphinx", "command", "openai" or "fake"
    std::vector<std::string> command;     ///< program and arguments
    std::string openaiUrl;                ///< base address of transcriptions, such as "https://example.org/v1"
    std::string openaiModel;
    std::string openaiLanguage;
    std::string openaiFormat;
    std::string chatUrl;  ///< base address of chat completions; empty: no chat
    std::string chatModel;
    double timeFactor = 6;  ///< how long a transcription may take, as a multiple of the sound's length
    FakeOptions fake;
};

void to_json(nlohmann::json& json, const EngineOptions& options);
/// Throws nlohmann::json::exception.
void from_json(const nlohmann::json& json, EngineOptions& options);

}  // namespace tessivox::backend
