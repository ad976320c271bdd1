#pragma once

#include <optional>
#include <string>

namespace tessivox::backend {

/// What a meeting is called in lists, where somebody could tell.
struct Headline {
    std::optional<std::string> title;
    std::optional<std::string> gist;  ///< one line
};

/// Makes summaries of transcripts in lines "[mm:ss] Speaker A: text". Any thread, several calls at a time; each ends
/// within kLongest.
class Summarizer {
public:
    static constexpr int kLongest = 110;  ///< seconds

    virtual ~Summarizer() = default;
    /// A document in Markdown. Throws base::Error with a sentence.
    virtual std::string summarize(const std::string& transcript, const std::optional<std::string>& title) = 0;
    /// Nothing if it would be a guess. Does not throw.
    virtual Headline headline(const std::string& transcript) = 0;
};

}  // namespace tessivox::backend
