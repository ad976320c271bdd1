#include "backend/http/MultipartReader.h"

#include <algorithm>

namespace tessivox::backend {
namespace {

constexpr std::string_view kLineBreak = "\r\n";
constexpr std::size_t kLongestBoundary = 70;  // RFC 2046, section 5.1.1

char lower(char c) { return 'A' <= c && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Drops the prefix, whatever its case, and the blanks after it; whether it was there.
bool skip(std::string_view& text, std::string_view prefix) {
    const bool isThere = text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin(),
                                                                    [](char a, char b) { return a == lower(b); });
    if (!isThere) return false;
    text.remove_prefix(prefix.size());
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(" \t")));
    return true;
}

/// Whether a header's line says that the part is the file. What follows the name, such as a file name in which anything
/// may stand, is nobody's concern.
bool namesFile(std::string_view line) {
    if (!skip(line, "content-disposition:") || !skip(line, "form-data") || !skip(line, ";")) return false;
    if (!skip(line, "name=")) return false;
    return line.starts_with("\"file\"") && (line.size() == 6 || line[6] == ';' || line[6] == ' ');
}

bool hasLineNamingFile(std::string_view header) {
    while (!header.empty()) {
        const auto line = header.substr(0, header.find(kLineBreak));
        if (namesFile(line)) return true;
        header.remove_prefix(std::min(header.size(), line.size() + kLineBreak.size()));
    }
    return false;
}

}  // namespace

std::optional<std::string> MultipartReader::boundary(std::string_view contentType) {
    if (!skip(contentType, "multipart/form-data") || !skip(contentType, ";")) return std::nullopt;
    if (!skip(contentType, "boundary=")) return std::nullopt;
    const bool isQuoted = contentType.starts_with('"');
    if (isQuoted) contentType.remove_prefix(1);
    const auto value = contentType.substr(0, contentType.find_first_of(isQuoted ? "\"" : "; \t"));
    if (value.empty() || value.size() > kLongestBoundary) return std::nullopt;
    return std::string(value);
}

MultipartReader::MultipartReader(std::string_view boundary, Sink sink)
    // The body is read as if a line had ended before it, so that its first delimiter is like the others.
    : delimiter_("\r\n--" + std::string(boundary)), sink_(std::move(sink)), held_(kLineBreak) {}

bool MultipartReader::take(std::span<const char> bytes) {
    if (state_ == State::done) return true;  // an epilogue means nothing
    held_.append(bytes.data(), bytes.size());
    while (step()) {
    }
    return state_ != State::failed;
}

bool MultipartReader::step() {
    switch (state_) {
        case State::opening:
            return takeOpening();
        case State::header:
            return takeHeader();
        case State::content:
            return takeContent();
        case State::afterContent:
            return takeEnd();
        case State::done:
        case State::failed:
            return false;
    }
    return false;
}

bool MultipartReader::takeOpening() {
    const auto expected = delimiter_ + std::string(kLineBreak);
    if (held_.size() < expected.size()) return expected.starts_with(held_) ? false : fail();
    if (!held_.starts_with(expected)) return fail();
    // The line break stays: a header without any line ends with two as well.
    held_.erase(0, delimiter_.size());
    state_ = State::header;
    return true;
}

bool MultipartReader::takeHeader() {
    const auto end = held_.find("\r\n\r\n");
    if (std::min(end, held_.size()) > kLongestHeader) return fail();
    if (end == std::string::npos) return false;
    if (!hasLineNamingFile(std::string_view(held_).substr(0, end).substr(std::min(end, kLineBreak.size())))) {
        return fail();
    }
    held_.erase(0, end + 2 * kLineBreak.size());
    state_ = State::content;
    return true;
}

bool MultipartReader::takeContent() {
    const auto end = held_.find(delimiter_);
    const auto kept = std::min(held_.size(), delimiter_.size() - 1);
    const auto count = end != std::string::npos ? end : held_.size() - kept;
    if (count > 0 && !sink_(std::span(held_).first(count))) return fail();
    held_.erase(0, count + (end != std::string::npos ? delimiter_.size() : 0));
    if (end == std::string::npos) return false;
    state_ = State::afterContent;
    return true;
}

bool MultipartReader::takeEnd() {
    if (held_.size() < 2) return false;
    if (!held_.starts_with("--")) return fail();
    held_.clear();
    state_ = State::done;
    return false;
}

bool MultipartReader::fail() {
    held_.clear();
    state_ = State::failed;
    return false;
}

}  // namespace tessivox::backend
