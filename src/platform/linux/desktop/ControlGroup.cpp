#include "platform/linux/desktop/ControlGroup.h"

#include <charconv>
#include <sstream>
#include <string_view>
#include <vector>

namespace tessivox::desktop {
namespace {

std::vector<std::string> parts(std::string_view text, char separator) {
    std::istringstream stream{std::string(text)};
    std::vector<std::string> result;
    for (std::string part; std::getline(stream, part, separator);) result.push_back(part);
    return result;
}

/// Without the escapes of systemd.unit(5), "\x2d" for "-".
std::string unescaped(std::string_view text) {
    std::string result;
    for (std::size_t place = 0; place < text.size(); ++place) {
        unsigned char letter = 0;
        const auto digits = text.substr(place, 4);
        const bool isEscape =
            digits.size() == 4 && digits.starts_with("\\x") &&
            std::from_chars(digits.data() + 2, digits.data() + 4, letter, 16).ptr == digits.data() + 4;
        result += isEscape ? static_cast<char>(letter) : text[place];
        if (isEscape) place += 3;
    }
    return result;
}

std::optional<GroupOwner> ownerBy(std::vector<std::string> names) {
    if (names.empty() || names.size() > 2) return std::nullopt;
    const auto kind =
        names.size() == 2 && names[0] == "flatpak" ? GroupOwner::Kind::flatpak : GroupOwner::Kind::desktopEntry;
    auto id = unescaped(names.back());
    if (id.ends_with(".desktop")) id.resize(id.size() - 8);
    if (id.empty()) return std::nullopt;
    return GroupOwner{kind, id};
}

std::optional<GroupOwner> ownerOfUnit(std::string_view unit) {
    const bool isScope = unit.ends_with(".scope");
    if (!isScope && !unit.ends_with(".service")) return std::nullopt;
    unit = unit.substr(0, unit.rfind('.'));
    if (unit.starts_with("snap.")) {
        const auto names = parts(unit, '.');
        if (names.size() < 3 || names[1].empty()) return std::nullopt;
        return GroupOwner{GroupOwner::Kind::snap, names[1]};
    }
    if (!unit.starts_with("app-")) return std::nullopt;
    unit = unit.substr(4, unit.find('@') - 4);
    auto names = parts(unit, '-');
    if (isScope && !names.empty()) names.pop_back();
    return ownerBy(std::move(names));
}

}  // namespace

std::optional<GroupOwner> ownerOfGroups(const std::string& lines) {
    for (const auto& line : parts(lines, '\n')) {
        // The innermost group knows best.
        const auto units = parts(line, '/');
        for (auto unit = units.rbegin(); unit != units.rend(); ++unit) {
            if (const auto owner = ownerOfUnit(*unit)) return owner;
        }
    }
    return std::nullopt;
}

}  // namespace tessivox::desktop
