#include "base/NameOrder.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>

namespace tessivox::base {
namespace {

bool isDigit(char letter) { return letter >= '0' && letter <= '9'; }

/// The text's first run of digits without leading zeros, or its first byte. Takes it off.
std::string_view takePiece(std::string_view& text) {
    const auto digits = static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
    auto piece = text.substr(0, std::max<std::size_t>(digits, 1));
    text.remove_prefix(piece.size());
    while (piece.size() > 1 && piece.front() == '0') piece.remove_prefix(1);
    return piece;
}

/// Below, at or above zero, as the first text stands before, at or after the second.
int comparedByPieces(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        const auto first = takePiece(left);
        const auto second = takePiece(right);
        const bool areNumbers = isDigit(first.front()) && isDigit(second.front());
        if (areNumbers && first.size() != second.size()) return first.size() < second.size() ? -1 : 1;
        if (const int order = first.compare(second); order != 0) return order;
    }
    return static_cast<int>(!left.empty()) - static_cast<int>(!right.empty());
}

}  // namespace

std::string foldedName(std::string_view name) {
    utf8proc_uint8_t* mapped = nullptr;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(name.data());
    const auto length =
        utf8proc_map(bytes, static_cast<utf8proc_ssize_t>(name.size()), &mapped,
                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE | UTF8PROC_CASEFOLD |
                                                    UTF8PROC_STRIPMARK | UTF8PROC_IGNORE));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owned(mapped, &std::free);
    if (length < 0) return std::string(name);
    return {reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(length)};
}

bool isNameBefore(std::string_view left, std::string_view right) {
    const int order = comparedByPieces(foldedName(left), foldedName(right));
    return order != 0 ? order < 0 : left < right;
}

}  // namespace tessivox::base
