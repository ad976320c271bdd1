#include "backend/speech/SentenceCase.h"

#include "base/Text.h"

namespace tessivox::backend {
namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
char capital(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

std::string sentenceCase(std::string_view words) {
    std::string sentence(base::trimmed(words));
    if (sentence.empty()) return sentence;
    for (std::size_t i = 0; i < sentence.size(); ++i) {
        const bool begins = i == 0 || sentence[i - 1] == ' ';
        const bool alone = i + 1 == sentence.size() || !isLetter(sentence[i + 1]);
        if (i == 0 || (begins && alone && sentence[i] == 'i')) sentence[i] = capital(sentence[i]);
    }
    return sentence + ".";
}

}  // namespace tessivox::backend
