#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tessivox::transcription {

// What is read out of a summary, and made of a title. All texts are UTF-8; a character is what base/Characters.h says.

/// The first line that has four characters or more once list markers and a label are taken off.
std::optional<std::string> extractTitle(std::string_view text);
/// Without "#", "-" and "*" at the beginning, and the blanks around.
std::string_view stripListMarkers(std::string_view line);
/// Without "Title:" and the like at the beginning.
std::string_view stripTitleLabel(std::string_view line);

/// The first paragraph of the section "Summary" as one line of at most `limit` characters.
std::optional<std::string> extractGist(std::string_view text, std::size_t limit);

/// What a title adds to a file name, in at most 50 characters and `mostBytes` bytes. It may be empty.
std::string slug(std::string_view title, std::size_t mostBytes);

}  // namespace tessivox::transcription
