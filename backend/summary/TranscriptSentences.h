#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tessivox::backend {

struct Sentence {
    std::string time;     ///< as in the transcript, such as "01:02"; may be empty
    std::string speaker;  ///< may be empty
    std::string text;     ///< one line
};

/// A transcript as sentences, whatever its lines.
struct TranscriptSentences {
    std::vector<Sentence> sentences;
    std::size_t speakers = 0;
    double seconds = 0;  ///< about the length of what was said; 0 if no line has a time
};

/// Reads lines "[mm:ss] Speaker: text", or plain ones. A sentence that goes on in the same speaker's next line is
/// joined. Of longer transcripts only the first 4 MiB (about a hundred hours) and 50,000 sentences count.
TranscriptSentences readSentences(std::string_view transcript);

}  // namespace tessivox::backend
