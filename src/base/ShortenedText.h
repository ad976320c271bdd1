#pragma once

#include <cstddef>
#include <string_view>

namespace tessivox::base {

/// The first `size` bytes of a text at most, without a UTF-8 sequence (RFC 3629) cut in two. Other bytes are cut as
/// they are.
std::string_view shortened(std::string_view text, std::size_t size);

}  // namespace tessivox::base
