#include "base/Uuid.h"

#include <algorithm>

namespace tessivox::base {

std::string uuidText(std::array<std::byte, 16> bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    bytes[6] = (bytes[6] & std::byte{0x0F}) | std::byte{0x40};
    bytes[8] = (bytes[8] & std::byte{0x3F}) | std::byte{0x80};
    std::string text;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10) text += '-';
        text += kDigits[std::to_integer<std::size_t>(bytes[index] >> 4)];
        text += kDigits[std::to_integer<std::size_t>(bytes[index] & std::byte{0x0F})];
    }
    return text;
}

bool isUuidText(std::string_view text) {
    constexpr std::string_view kForm = "00000000-0000-0000-0000-000000000000";
    const auto fits = [](char form, char letter) {
        return form == '-' ? letter == '-' : (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'F');
    };
    return text.size() == kForm.size() && std::ranges::equal(kForm, text, fits);
}

std::string makeUuid(const RandomBytes& random) {
    std::array<std::byte, 16> bytes{};
    random(bytes);
    return uuidText(bytes);
}

}  // namespace tessivox::base
