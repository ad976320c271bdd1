#pragma once

#include <string>
#include <string_view>

namespace tessivox::desktop {

/// An identifier as another program gave it: 128 bytes of printable ASCII at most, anything else as "_".
std::string safeIdentifier(std::string_view text);

/// A name for the eye: 256 bytes of UTF-8 at most, without control characters and without those that turn the writing
/// direction (Unicode Standard Annex 9).
std::string safeName(std::string_view text);

/// With the letters A to Z as small ones.
std::string lowerCased(std::string_view text);

}  // namespace tessivox::desktop
