#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessivox::base {

/// The text a user sees for an English text, which is its own key. The Linux catalogue replaces words that mean nothing
/// here; a key without an entry stands for itself.
std::string localized(std::string_view english);

/// Fills the places "{0}", "{1}" of a text.
std::string filled(std::string text, std::initializer_list<std::string_view> values);

/// A whole number with leading zeros up to a width, without regard to the locale.
std::string paddedNumber(long long number, int width);

/// A number with a fixed count of decimals, with a point whatever the locale.
std::string fixedNumber(double number, int decimals);

/// Without the white space and line breaks (Unicode's White_Space) at both ends. UTF-8.
std::string_view trimmed(std::string_view text);

/// Whether the bytes are UTF-8 (RFC 3629).
bool isUTF8(std::string_view bytes);

/// The text with U+FFFD in the place of each byte that belongs to no UTF-8 sequence.
std::string repairedUTF8(std::string_view bytes);

/// Every byte as %XX except letters, digits, "-", ".", "_", "~" (RFC 3986, 2.3) and "/", so that any file's path
/// becomes plain text.
std::string percentEncoded(std::string_view bytes);

/// The bytes that such a text stands for; absent if a "%" is not followed by two hexadecimal digits.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace tessivox::base
