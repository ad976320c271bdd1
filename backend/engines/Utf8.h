#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tessivox::backend {

struct Character {
    char32_t code = 0;
    std::size_t size = 0;  ///< bytes
};

/// The character (RFC 3629) that a text, which is not empty, begins with. A byte that is none counts as U+FFFD.
Character firstCharacter(std::string_view text);

void appendCharacter(std::string& text, char32_t code);

/// With the letters A to Z in lower case.
std::string lowered(std::string_view text);

/// For texts that others wrote: one line of UTF-8 of at most `mostBytes` bytes, without control and bidirectional
/// characters, blanks at the ends, or two blanks in a row.
std::string oneLine(std::string_view text, std::size_t mostBytes);

/// oneLine(), but what was cut is cut at a blank and shown by "…".
std::string briefLine(std::string_view text, std::size_t mostBytes);

}  // namespace tessivox::backend
