#include "base/Characters.h"

#include <utf8proc.h>

#include <algorithm>

namespace tessivox::base {
namespace {

/// Goes through a text, one character a step.
class CharacterWalk {
public:
    explicit CharacterWalk(std::string_view text) : rest_(text) { take(); }

    bool isAtEnd() const { return length_ == 0; }
    /// Bytes of the character at this place.
    std::size_t step() {
        auto size = length_;
        for (auto before = codePoint_; take(); before = codePoint_) {
            // A lone byte joins nothing; asked about it, the library would be told of a code point below 0.
            if (before < 0 || codePoint_ < 0 || utf8proc_grapheme_break_stateful(before, codePoint_, &state_)) break;
            size += length_;
        }
        return size;
    }

private:
    std::string_view rest_;
    std::size_t length_ = 0;  ///< of the code point at the place, in bytes
    utf8proc_int32_t codePoint_ = -1;
    utf8proc_int32_t state_ = 0;

    bool take() {
        rest_.remove_prefix(length_);
        length_ = 0;
        if (rest_.empty()) return false;
        const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(rest_.data());
        const auto available = static_cast<utf8proc_ssize_t>(std::min<std::size_t>(rest_.size(), 4));
        const auto taken = utf8proc_iterate(bytes, available, &codePoint_);
        length_ = taken > 0 ? static_cast<std::size_t>(taken) : 1;
        return true;
    }
};

}  // namespace

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (CharacterWalk walk(text); !walk.isAtEnd(); ++count) walk.step();
    return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t count, std::size_t bytes) {
    std::size_t end = 0;
    for (CharacterWalk walk(text); count > 0 && !walk.isAtEnd(); --count) {
        const auto size = walk.step();
        if (size > bytes - end) break;
        end += size;
    }
    return text.substr(0, end);
}

}  // namespace tessivox::base
