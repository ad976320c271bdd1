#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace tessivox::posix {

/// A short text in memory of its own, for signal handlers: nothing here allocates or locks. What does not fit is cut.
template <std::size_t Size>
class SignalSafeText {
public:
    SignalSafeText& operator<<(std::string_view text) noexcept {
        const auto count = std::min(text.size(), Size - used_);
        std::copy_n(text.data(), count, bytes_.data() + used_);
        used_ += count;
        return *this;
    }
    SignalSafeText& operator<<(std::integral auto number) noexcept {
        const auto [end, error] = std::to_chars(bytes_.data() + used_, bytes_.data() + Size, number);
        if (error == std::errc()) used_ = static_cast<std::size_t>(end - bytes_.data());
        return *this;
    }
    SignalSafeText& hex(std::uintptr_t number) noexcept {
        *this << "0x";
        const auto [end, error] = std::to_chars(bytes_.data() + used_, bytes_.data() + Size, number, 16);
        if (error == std::errc()) used_ = static_cast<std::size_t>(end - bytes_.data());
        return *this;
    }

    std::string_view view() const noexcept { return {bytes_.data(), used_}; }
    /// Ends with a zero, in place of the last byte if there is no room.
    const char* c_str() noexcept {
        bytes_[std::min(used_, Size - 1)] = '\0';
        return bytes_.data();
    }

private:
    std::array<char, Size> bytes_{};
    std::size_t used_ = 0;
};

}  // namespace tessivox::posix
