#pragma once

#include <optional>
#include <string>

#include "backend/Summarizer.h"
#include "backend/summary/ChatEndpoint.h"

namespace tessivox::backend {

/// Writes with a language model where one is set up; else, and whenever that fails, quotes the transcript.
class TranscriptSummarizer final : public Summarizer {
public:
    TranscriptSummarizer() = default;
    /// Throws EngineError if an address or key cannot be right.
    explicit TranscriptSummarizer(ChatSettings settings) : chat_(std::in_place, std::move(settings)) {}

    /// The last line says how it was made. Does not throw. Takes at most the model's limit and a moment.
    std::string summarize(const std::string& transcript, const std::optional<std::string>& title) override;
    /// Nothing without a language model: no title is better than a bad one, since clients rename files by it.
    Headline headline(const std::string& transcript) override;

private:
    std::optional<ChatEndpoint> chat_;

    std::optional<std::string> writtenSummary(const std::string& transcript,
                                              const std::optional<std::string>& title) const;
};

}  // namespace tessivox::backend
