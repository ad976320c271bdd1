#pragma once

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

}  // namespace tessivox::base
