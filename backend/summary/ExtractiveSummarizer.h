#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessivox::backend {

/// A heading that is true of a transcript: "Meeting notes, 14 min, 2 speakers"; of one voice "Voice notes, 3 min";
/// where speakers are not told apart "Notes, 14 min". Or the title that the client gave, on one line, and long enough
/// that its reader takes it for a title (4 characters).
std::string summaryHeading(std::string_view transcript, const std::optional<std::string>& title);

/// The last line of an extracted summary.
extern const std::string_view kExtractNotice;

/// The most telling sentences of a transcript, word for word, in the summary's format: "# Title: …", "## Summary" with
/// one paragraph of at most three sentences, "## Key points", "## Possible action items", and a last line that says
/// what this is. A transcript of under five sentences gets no extract. The same for the same input; milliseconds an
/// hour.
std::string extractSummary(std::string_view transcript, const std::optional<std::string>& title);

/// The transcript for a reader with little room: all lines, or the most telling sentences in their order, of at most so
/// many bytes.
std::string condensedTranscript(std::string_view transcript, std::size_t mostBytes);

}  // namespace tessivox::backend
