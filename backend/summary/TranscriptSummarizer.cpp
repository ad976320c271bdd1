#include "backend/summary/TranscriptSummarizer.h"

#include "backend/engines/Utf8.h"
#include "backend/summary/ExtractiveSummarizer.h"
#include "base/Error.h"
#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::backend {

std::string TranscriptSummarizer::summarize(const std::string& transcript, const std::optional<std::string>& title) {
    if (auto written = writtenSummary(transcript, title)) return std::move(*written);
    return extractSummary(transcript, title);
}

Headline TranscriptSummarizer::headline(const std::string& transcript) {
    if (!chat_ || base::trimmed(transcript).empty()) return {};
    try {
        return chat_->headline(transcript);
    } catch (const base::Error& error) {
        base::log("[Summary] No title: " + error.description());
        return {};
    }
}

std::optional<std::string> TranscriptSummarizer::writtenSummary(const std::string& transcript,
                                                                const std::optional<std::string>& title) const {
    if (!chat_ || base::trimmed(transcript).empty()) return std::nullopt;
    try {
        const auto body = chat_->summary(transcript);
        return "# Title: " + summaryHeading(transcript, title) + "\n\n" + body + "\nWritten by the language model " +
               briefLine(chat_->model(), 80) + " from the transcript; check what matters.\n";
    } catch (const base::Error& error) {
        base::log("[Summary] The language model failed: " + error.description());
        return std::nullopt;
    }
}

}  // namespace tessivox::backend
