#include "transcription/ServerAddress.h"

#include <algorithm>

#include "base/Text.h"
#include "services/telemetry/Endpoint.h"

namespace tessivox::transcription {
namespace {

constexpr std::string_view kMask = "***";
/// The words of an address are shorter, and 64 bits in hexadecimal digits are as long.
constexpr std::size_t kShortestSecret = 16;
constexpr std::string_view kLastPart = "/api";

struct AddressParts {
    std::string_view scheme;     ///< with "://"
    std::string_view authority;  ///< user, host and port
    std::string_view path;
    std::string_view rest;  ///< query and fragment
};

AddressParts partsOf(std::string_view url) {
    AddressParts parts;
    if (const auto separator = url.find("://"); separator != url.npos) parts.scheme = url.substr(0, separator + 3);
    url.remove_prefix(parts.scheme.size());
    parts.authority = url.substr(0, url.find_first_of("/?#"));
    url.remove_prefix(parts.authority.size());
    parts.path = url.substr(0, url.find_first_of("?#"));
    parts.rest = url.substr(parts.path.size());
    return parts;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& letter : result) letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
    return result;
}

std::string withoutZeros(std::string_view port) {
    port.remove_prefix(std::min(port.find_first_not_of('0'), port.size()));
    return std::string(port);
}

std::string maskedPath(std::string_view path) {
    std::string shown;
    while (!path.empty()) {
        const auto part = path.substr(0, path.find('/', 1));
        const bool isLong = part.size() > kShortestSecret;
        shown += isLong ? (part.starts_with('/') ? "/" : "") + std::string(kMask) : std::string(part);
        path.remove_prefix(part.size());
    }
    return shown;
}

std::string refusal(std::string_view source) {
    return base::filled(
        base::localized("The server's address in {0} cannot be used: give https://host/path without a user name, or "
                        "http:// for a server on this computer."),
        {source});
}

}  // namespace

ServerAddressError::ServerAddressError(std::string_view source) : Error("server address", 1, refusal(source)) {}

std::optional<std::string> configuredServer(const ServerSettings& settings) {
    const std::pair<const std::optional<std::string>*, std::string_view> sources[] = {
        {&settings.option, "--server"},
        {&settings.environment, "TESSIVOX_SERVER"},
        {&settings.preference, "the setting \"serverURL\""}};
    for (const auto& [text, name] : sources) {
        if (!*text || base::trimmed(**text).empty()) continue;
        auto url = baseURLOf(base::trimmed(**text));
        if (!url) throw ServerAddressError(name);
        return url;
    }
    return std::nullopt;
}

std::optional<std::string> baseURLOf(std::string_view text) {
    if (!telemetry::isAllowed(text) || text.find_first_of("?#") != text.npos) return std::nullopt;
    while (text.ends_with('/')) text.remove_suffix(1);
    std::string url(text);
    if (!partsOf(text).path.ends_with(kLastPart)) url += kLastPart;
    return url;
}

std::optional<std::string> originOf(std::string_view url) {
    if (!telemetry::isAllowed(url)) return std::nullopt;
    const auto parts = partsOf(url);
    const auto scheme = lowered(parts.scheme);
    const auto authority = lowered(parts.authority);
    const auto bracket = authority.starts_with('[') ? authority.find(']') : 0;
    const auto colon = authority.find(':', bracket);
    auto port = colon == authority.npos ? std::string() : withoutZeros(authority.substr(colon + 1));
    if (port.empty()) port = scheme == "https://" ? "443" : "80";
    return scheme + authority.substr(0, colon) + ":" + port;
}

std::string maskedURL(std::string_view url) {
    const auto parts = partsOf(url);
    const auto user = parts.authority.rfind('@');
    std::string shown(parts.scheme);
    shown += user == parts.authority.npos ? std::string(parts.authority)
                                          : std::string(kMask).append(parts.authority.substr(user));
    shown += maskedPath(parts.path);
    if (!parts.rest.empty()) shown.append(parts.rest.substr(0, 1)).append(kMask);
    return shown;
}

}  // namespace tessivox::transcription
