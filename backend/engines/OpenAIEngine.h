#pragma once

#include <chrono>
#include <span>
#include <string>
#include <vector>

#include "backend/Engine.h"
#include "backend/engines/Endpoint.h"

namespace tessivox::backend {

struct OpenAISettings {
    /// The variable of the environment that `key` is to be taken from; nowhere else may it stand.
    static constexpr const char* kKeyVariable = "TESSIVOX_OPENAI_KEY";

    std::string url = "https://api.openai.com/v1";
    std::string model = "whisper-1";
    std::string key;                              ///< empty for services that want none
    std::string language;                         ///< of ISO 639-1, such as "en"; empty to let the service find out
    std::string responseFormat = "verbose_json";  ///< what some models call otherwise: "json", "diarized_json"
    double secondsPerRequest = 600;               ///< of sound, which makes 19.2 MB
    PostLimits limits{.idle = std::chrono::minutes(5), .total = std::chrono::minutes(10)};
    /// Before each further try of a request that failed for a reason which may pass.
    std::vector<std::chrono::milliseconds> pauses = {std::chrono::seconds(2), std::chrono::seconds(15)};
};

/// A service that speaks OpenAI's POST /audio/transcriptions. The sound leaves this machine unless the service runs on
/// it. Long sound goes in pieces, one after the other.
class OpenAIEngine final : public Engine {
public:
    /// Throws EngineError if an address or key cannot be right.
    explicit OpenAIEngine(OpenAISettings settings);

    /// The model's name.
    std::string name() const override;
    std::vector<Utterance> transcribe(const Sound& sound, const Progress& progress) override;

private:
    OpenAISettings settings_;
    Endpoint endpoint_;

    std::string answerFor(std::span<const std::int16_t> samples) const;
    PostAnswer tryOften(const std::string& contentType, const std::string& body) const;
    std::string failureOf(const PostAnswer& answer) const;
};

}  // namespace tessivox::backend
