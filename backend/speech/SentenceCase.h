#pragma once

#include <string>
#include <string_view>

namespace tessivox::backend {

/// A recogniser's English words in lower case as a sentence: a capital first, "I" where it stands for the speaker, and
/// a full stop. Nothing for no words.
std::string sentenceCase(std::string_view words);

}  // namespace tessivox::backend
