#pragma once

#include <string>
#include <string_view>

namespace tessivox::base {

/// The order in which people look for names: without regard to case and accents, and "Take 2" before "Take 10". Names
/// that only differ in these are ordered by their bytes. UTF-8; what is none is compared by its bytes.
bool isNameBefore(std::string_view left, std::string_view right);

/// A name without case, accents and what cannot be seen, by which names are the same to people.
std::string foldedName(std::string_view name);

}  // namespace tessivox::base
