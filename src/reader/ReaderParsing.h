#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The grammar of transcripts and summaries, the text files beside a recording. Pure functions; parsing never fails. Any
// thread.
//
// The files come from any system and any hand: a byte order mark at the start and the CR of a CR LF are left out, and
// bytes that are not UTF-8 read as U+FFFD.
namespace tessivox::reader {

/// One line of a transcript.
struct Segment {
    std::string_view time;     ///< what stands between the brackets, as it is; empty if there are none
    double start = 0;          ///< seconds
    std::string_view speaker;  ///< trimmed; may be empty
    std::string_view text;     ///< what was said

    bool operator==(const Segment&) const = default;
};

/// One line of a summary.
struct Block {
    enum class Kind { h1, h2, h3, bullet, paragraph, meta };
    Kind kind = Kind::paragraph;
    std::string_view text;

    bool operator==(const Block&) const = default;
};

/// The entries of a text. Their views point into one buffer, which this keeps alive, and so does every copy of it; no
/// view outlasts the last of them.
template <typename Entry>
class Parsed {
public:
    Parsed() = default;
    Parsed(std::shared_ptr<const std::string> buffer, std::vector<Entry> entries)
        : buffer_(std::move(buffer)), entries_(std::move(entries)) {}

    // Of a result that goes at the end of the expression nothing would be left.
    std::span<const Entry> entries() const& { return entries_; }
    std::span<const Entry> entries() const&& = delete;
    const Entry& operator[](std::size_t index) const& { return entries_[index]; }
    const Entry& operator[](std::size_t index) const&& = delete;

    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }
    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }

private:
    std::shared_ptr<const std::string> buffer_;
    std::vector<Entry> entries_;
};

using Transcript = Parsed<Segment>;
using Summary = Parsed<Block>;

/// "[{time}] {speaker}: {text}", one entry a line. A line of another form is a segment with nothing but its text.
Transcript parseTranscript(std::string text);

/// Seconds of "01:02:03", "12:34", "90" or "1:30.5"; parts that are no finite numbers do not count. 0 if none is left,
/// or if the whole is beyond what a double holds.
double parseTime(std::string_view time);

/// A subset of Markdown, line by line.
Summary parseBlocks(std::string text);

/// What a colour of a speaker is made of: each channel from 0 to 1, opaque.
struct ChannelColor {
    double red = 0;
    double green = 0;
    double blue = 0;

    bool operator==(const ChannelColor&) const = default;
};

/// 24-bit RGB values as hexadecimal text, one for each appearance.
struct SpeakerColor {
    std::string_view dark;
    std::string_view light;

    ChannelColor resolved(bool isDark) const;
    bool operator==(const SpeakerColor&) const = default;
};

inline constexpr std::array<SpeakerColor, 6> speakerPalette{{{"0A84FF", "007AFF"},
                                                             {"D08BF5", "8944AB"},
                                                             {"40D869", "248A3D"},
                                                             {"FFB340", "C8730B"},
                                                             {"4DD0DB", "0E7C86"},
                                                             {"FF6B9E", "C2185B"}}};

/// The colour of each speaker, given out by first appearance and again from the start after the last.
std::map<std::string, SpeakerColor, std::less<>> speakerColors(std::span<const Segment> segments);

enum class FontWeight { regular, semibold, bold };
enum class ColorRole { label, secondaryLabel, tertiaryLabel };

/// One paragraph in the desktop's font. Lengths are points.
struct StyledParagraph {
    std::string text;  ///< ends in a line feed
    double size = 0;
    FontWeight weight = FontWeight::regular;
    ColorRole color = ColorRole::label;
    double spaceAfter = 0;
    double spaceBefore = 0;
    double headIndent = 0;  ///< of every line but the first
    double lineHeightMultiple = 1.25;

    bool operator==(const StyledParagraph&) const = default;
};

/// A summary as it is shown.
std::vector<StyledParagraph> summaryAttributedString(std::string text);

}  // namespace tessivox::reader
