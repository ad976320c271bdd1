#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace tessivox::base {

/// Fills the span with random bytes that nobody can foretell.
using RandomBytes = std::function<void(std::span<std::byte> bytes)>;

/// The bytes as a version 4 UUID (RFC 9562, section 5.4: the bits of version and variant are overwritten), in the text
/// form 8-4-4-4-12 with upper-case digits, 36 characters.
std::string uuidText(std::array<std::byte, 16> bytes);

/// Whether a text has that form: 8-4-4-4-12 upper-case hexadecimal digits.
bool isUuidText(std::string_view text);

/// A new random UUID.
std::string makeUuid(const RandomBytes& random);

}  // namespace tessivox::base
