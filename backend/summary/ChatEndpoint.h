#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "backend/Summarizer.h"
#include "backend/engines/Endpoint.h"

namespace tessivox::backend {

struct ChatSettings {
    /// The variable of the environment that `key` is to be taken from; nowhere else may it stand.
    static constexpr const char* kKeyVariable = "TESSIVOX_CHAT_KEY";

    std::string url;                                             ///< such as "http://127.0.0.1:11434/v1"
    std::string model;                                           ///< as the service calls it
    std::string key;                                             ///< empty for services that want none
    std::chrono::milliseconds limit = std::chrono::seconds(85);  ///< for one answer in all
    std::size_t mostTranscript = 48'000;                         ///< bytes that are sent
};

/// A language model behind OpenAI's POST /chat/completions. The transcript leaves this machine unless the service runs
/// on it. What comes back is text of others: it is checked and cleaned, and never more than text.
class ChatEndpoint {
public:
    /// Throws EngineError if an address or key cannot be right.
    explicit ChatEndpoint(ChatSettings settings);

    const std::string& model() const { return settings_.model; }
    /// Lines of Markdown with "## Summary" first, without a title. Throws EngineError.
    std::string summary(std::string_view transcript) const;
    /// A title of 4 to 80 characters and a gist of at most 160, if there is one. Throws EngineError.
    Headline headline(std::string_view transcript) const;

private:
    ChatSettings settings_;
    Endpoint endpoint_;

    std::string ask(const std::string& task, std::string_view transcript) const;
};

}  // namespace tessivox::backend
