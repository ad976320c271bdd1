#include "platform/linux/desktop/ProcessFiles.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <sstream>
#include <string_view>
#include <system_error>

#include "platform/linux/desktop/SmallFile.h"

namespace tessivox::desktop {
namespace {

constexpr std::size_t kLargestFile = 64 * 1024;
constexpr std::size_t kLongestMountList = 1 << 20;

template <typename Number>
Number number(std::string_view digits) {
    Number value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return error == std::errc() && end == digits.data() + digits.size() ? value : 0;
}

std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string word; stream >> word;) result.push_back(word);
    return result;
}

/// The value of a key in a group of a key file (flatpak-metadata(5)).
std::string valueIn(const std::string& text, std::string_view group, std::string_view key) {
    std::istringstream lines(text);
    bool isInGroup = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('[')) isInGroup = line == group;
        if (isInGroup && line.starts_with(key)) return line.substr(key.size());
    }
    return {};
}

}  // namespace

std::string baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string ProcessFiles::read(std::int32_t pid, const char* name) const {
    return readSmallFile(folder(pid) / name, kLargestFile).value_or("");
}

std::string ProcessFiles::executable(std::int32_t pid) const {
    std::array<char, PATH_MAX> target{};
    const auto length = ::readlink((folder(pid) / "exe").c_str(), target.data(), target.size());
    if (length <= 0) return {};
    std::string path(target.data(), static_cast<std::size_t>(length));
    // So the kernel marks a program that was replaced, as an update does.
    constexpr std::string_view mark = " (deleted)";
    if (path.ends_with(mark)) path.resize(path.size() - mark.size());
    return path;
}

std::vector<std::string> ProcessFiles::arguments(std::int32_t pid) const {
    std::istringstream text(read(pid, "cmdline"));
    std::vector<std::string> result;
    for (std::string argument; std::getline(text, argument, '\0');) result.push_back(argument);
    return result;
}

/// The fields of "stat" from the third on: the second is the program's name, with whatever it contains.
std::vector<std::string> ProcessFiles::status(std::int32_t pid) const {
    const auto text = read(pid, "stat");
    const auto end = text.rfind(')');
    return end == std::string::npos ? std::vector<std::string>() : words(text.substr(end + 1));
}

std::int32_t ProcessFiles::parent(std::int32_t pid) const {
    const auto fields = status(pid);
    return fields.size() > 1 ? number<std::int32_t>(fields[1]) : 0;
}

std::uint64_t ProcessFiles::startTime(std::int32_t pid) const {
    const auto fields = status(pid);
    return fields.size() > 19 ? number<std::uint64_t>(fields[19]) : 0;
}

std::string ProcessFiles::controlGroups(std::int32_t pid) const { return read(pid, "cgroup"); }

/// Whether the root of its files is served by the kernel: a program behind a root could let us wait for ever.
bool ProcessFiles::isRootServedByKernel(std::int32_t pid) const {
    const auto file = folder(pid) / "mountinfo";
    const auto text = readSmallFile(file, kLongestMountList);
    std::error_code unknown;
    if (!text) return !std::filesystem::exists(file, unknown);
    std::istringstream mounts(*text);
    bool hasRoot = false;  // of which a program confined to a part of a mount sees nothing
    for (std::string line; std::getline(mounts, line);) {
        const auto fields = words(line);
        const auto dash = std::ranges::find(fields, "-");
        if (fields.size() < 5 || dash == fields.end() || dash + 1 == fields.end()) continue;
        const bool isOnTheWay = fields[4] == "/" || fields[4] == "/.flatpak-info";
        if (isOnTheWay && (dash + 1)->starts_with("fuse")) return false;
        hasRoot = hasRoot || fields[4] == "/";
    }
    return hasRoot;
}

std::string ProcessFiles::flatpak(std::int32_t pid) const {
    if (!isRootServedByKernel(pid)) return {};
    const auto info = readSmallFileIn(folder(pid) / "root", ".flatpak-info", kLargestFile);
    return info ? valueIn(*info, "[Application]", "name=") : std::string();
}

std::vector<std::int32_t> ProcessFiles::knownInSandboxAs(std::int32_t wanted) const {
    std::vector<std::int32_t> result;
    std::error_code error;
    for (std::filesystem::directory_iterator each(proc_, error), end; !error && each != end; each.increment(error)) {
        const auto pid = number<std::int32_t>(each->path().filename().string());
        if (pid <= 0) continue;
        const auto text = read(pid, "status");
        const auto start = text.find("\nNSpid:");
        if (start == std::string::npos) continue;
        const auto numbers = words(text.substr(start + 7, text.find('\n', start + 1) - start - 7));
        if (numbers.size() > 1 && number<std::int32_t>(numbers.back()) == wanted) result.push_back(pid);
    }
    std::ranges::sort(result);
    return result;
}

}  // namespace tessivox::desktop
