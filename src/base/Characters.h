#pragma once

#include <cstddef>
#include <string_view>

namespace tessivox::base {

// A character is what a reader takes for one: an extended grapheme cluster (Unicode Standard Annex 29), such as a
// letter with its accents or a flag. A byte that is no UTF-8 counts as one.

std::size_t characterCount(std::string_view text);

/// The beginning of a text: at most `count` whole characters in at most `bytes` bytes.
std::string_view firstCharacters(std::string_view text, std::size_t count, std::size_t bytes = std::string_view::npos);

}  // namespace tessivox::base
