#pragma once

#include <string>

#include "reader/ReaderParsing.h"

namespace tessivox::reader {

/// What is known of the recording that a transcript or summary belongs to. Empty where nothing is.
struct DocumentInfo {
    std::string path;       ///< of the text file
    std::string recording;  ///< path of the audio file
    std::string title;
    std::string gist;
    std::string date;       ///< ISO 8601, UTC
    std::string localDate;  ///< for people
};

// Every function gives lines that end in a line feed. Texts are UTF-8, JSON also where paths are not.

/// One line an entry, as the file has them but tidied.
std::string transcriptPlain(const Transcript& transcript);
/// One paragraph an entry, under the title, with everything escaped that CommonMark would take for markup.
std::string transcriptMarkdown(const Transcript& transcript, const DocumentInfo& info);
/// One object: what is known, and "segments" with "time", "start" (seconds), "speaker" and "text".
std::string transcriptJSON(const Transcript& transcript, const DocumentInfo& info);

/// Without markup, as a reader shows it.
std::string summaryPlain(const std::string& text);
/// The summary is Markdown already: it is tidied, and gets a heading if it has none.
std::string summaryMarkdown(const Summary& summary, const DocumentInfo& info);
/// One object: what is known, and "blocks" with "kind" ("h1", "h2", "h3", "bullet", "paragraph", "meta") and "text".
std::string summaryJSON(const Summary& summary, const DocumentInfo& info);

}  // namespace tessivox::reader
