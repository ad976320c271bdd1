#pragma once

#include <cstddef>
#include <string_view>

namespace tessivox::backend {

/// Whether two texts are equal, in a time that tells nothing but their lengths.
inline bool isSame(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned>(static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]));
    }
    return difference == 0;
}

}  // namespace tessivox::backend
