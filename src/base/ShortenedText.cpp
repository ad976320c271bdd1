#include "base/ShortenedText.h"

namespace tessivox::base {

std::string_view shortened(std::string_view text, std::size_t size) {
    if (text.size() <= size) return text;
    const auto isContinuation = [&](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U; };
    auto end = size;
    while (end > 0 && size - end < 3 && isContinuation(end)) --end;
    return text.substr(0, isContinuation(end) ? size : end);
}

}  // namespace tessivox::base
