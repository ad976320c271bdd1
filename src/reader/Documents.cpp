#include "reader/Documents.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

namespace tessivox::reader {
namespace {

using std::string_view;
using Kind = Block::Kind;
using Json = nlohmann::ordered_json;

bool isDigit(char letter) { return letter >= '0' && letter <= '9'; }

/// Any punctuation may stand behind a backslash (CommonMark 0.30, 2.4); these mean something within a line.
std::string escapedInline(string_view text) {
    std::string escaped;
    for (const char letter : text) {
        if (string_view("\\`*_[]<>&~|").find(letter) != string_view::npos) escaped += '\\';
        escaped += letter;
    }
    return escaped;
}

/// For the start of a line, where lists and headings begin too.
std::string escapedLine(string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    const auto digits = static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
    const auto mark = digits < text.size() ? text[digits] : '\0';
    const bool isMarked =
        digits == 0 ? string_view("#+-=").find(mark) != string_view::npos : mark == '.' || mark == ')';
    if (!isMarked || mark == '\0') return escapedInline(text);
    return std::string(text.substr(0, digits)) + "\\" + escapedInline(text.substr(digits));
}

std::string markdownHead(const DocumentInfo& info) {
    std::string text;
    if (!info.title.empty()) text += "# " + escapedInline(info.title) + "\n\n";
    if (!info.localDate.empty()) text += escapedLine(info.localDate) + "\n\n";
    if (!info.gist.empty()) text += "> " + escapedLine(info.gist) + "\n\n";
    return text;
}

Json textOrNull(const std::string& text) { return text.empty() ? Json() : Json(text); }

Json described(const DocumentInfo& info) {
    return {{"path", info.path},
            {"recording", textOrNull(info.recording)},
            {"title", textOrNull(info.title)},
            {"gist", textOrNull(info.gist)},
            {"date", textOrNull(info.date)}};
}

std::string jsonText(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

string_view kindName(Kind kind) {
    switch (kind) {
        case Kind::h1:
            return "h1";
        case Kind::h2:
            return "h2";
        case Kind::h3:
            return "h3";
        case Kind::bullet:
            return "bullet";
        case Kind::paragraph:
            return "paragraph";
        case Kind::meta:
            return "meta";
    }
    return {};
}

string_view markdownMark(Kind kind) {
    switch (kind) {
        case Kind::h1:
            return "# ";
        case Kind::h2:
            return "## ";
        case Kind::h3:
            return "### ";
        case Kind::bullet:
            return "- ";
        case Kind::paragraph:
        case Kind::meta:
            return "";
    }
    return {};
}

}  // namespace

std::string transcriptPlain(const Transcript& transcript) {
    std::string text;
    for (const auto& segment : transcript) {
        if (!segment.time.empty()) text += "[" + std::string(segment.time) + "] ";
        if (!segment.speaker.empty()) text += std::string(segment.speaker) + ": ";
        text += std::string(segment.text) + "\n";
    }
    return text;
}

std::string transcriptMarkdown(const Transcript& transcript, const DocumentInfo& info) {
    auto text = markdownHead(info);
    for (const auto& segment : transcript) {
        std::string head;
        if (!segment.speaker.empty()) head = "**" + escapedInline(segment.speaker) + "** ";
        if (!segment.time.empty()) head += "(" + escapedInline(segment.time) + ") ";
        text += head + (head.empty() ? escapedLine(segment.text) : escapedInline(segment.text)) + "\n\n";
    }
    return text;
}

std::string transcriptJSON(const Transcript& transcript, const DocumentInfo& info) {
    auto json = described(info);
    auto& segments = json["segments"] = Json::array();
    for (const auto& segment : transcript)
        segments.push_back(
            {{"time", segment.time}, {"start", segment.start}, {"speaker", segment.speaker}, {"text", segment.text}});
    return jsonText(json);
}

std::string summaryPlain(const std::string& text) {
    std::string plain;
    for (const auto& paragraph : summaryAttributedString(text)) {
        if (paragraph.spaceBefore > 0 && !plain.empty()) plain += "\n";
        plain += paragraph.text;
    }
    return plain;
}

std::string summaryMarkdown(const Summary& summary, const DocumentInfo& info) {
    const bool hasHeading = std::ranges::find(summary, Kind::h1, &Block::kind) != summary.end();
    auto text = hasHeading ? std::string() : markdownHead(info);
    auto last = Kind::paragraph;
    for (const auto& block : summary) {
        // Without the blank line between them two paragraphs would be one.
        if (!text.empty() && !text.ends_with("\n\n") && !(last == Kind::bullet && block.kind == last)) text += "\n";
        text += std::string(markdownMark(block.kind)) + std::string(block.text) + "\n";
        last = block.kind;
    }
    return text;
}

std::string summaryJSON(const Summary& summary, const DocumentInfo& info) {
    auto json = described(info);
    auto& blocks = json["blocks"] = Json::array();
    for (const auto& block : summary) blocks.push_back({{"kind", kindName(block.kind)}, {"text", block.text}});
    return jsonText(json);
}

}  // namespace tessivox::reader
