#include "services/telemetry/Endpoint.h"

#include <algorithm>
#include <charconv>

#include "base/Text.h"

namespace tessivox::telemetry {
namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& letter : result) letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
    return result;
}

/// Takes a number of up to so many digits off the front; false if there is none or it is greater than `most`.
bool takeNumber(std::string_view& text, int most) {
    int number = 0;
    const auto digits = std::min(text.find_first_not_of(kDigits), text.size());
    const auto [end, error] = std::from_chars(text.data(), text.data() + digits, number);
    text.remove_prefix(digits);
    return error == std::errc() && number <= most;
}

bool isLoopbackAddress(std::string_view host) {
    if (!host.starts_with("127.")) return false;
    host.remove_prefix(3);
    for (int part = 0; part < 3; ++part) {
        if (!host.starts_with('.')) return false;
        host.remove_prefix(1);
        if (!takeNumber(host, 255)) return false;
    }
    return host.empty();
}

bool isLoopback(std::string_view host) { return host == "localhost" || host == "[::1]" || isLoopbackAddress(host); }

/// The host of "host", "host:1234" or "[address]:1234"; empty if it is something else, such as one with a user's name.
std::string_view hostOf(std::string_view authority) {
    const auto bracket = authority.starts_with('[') ? std::min(authority.find(']'), authority.size()) : 0;
    const auto host = authority.substr(0, authority.find(':', bracket));
    auto port = authority.substr(host.size());
    if (port.starts_with(':')) {
        port.remove_prefix(1);
        if (!takeNumber(port, 65535)) return {};
    }
    return port.empty() ? host : std::string_view();
}

/// Characters that programs read differently: what looks like one host to us may be another to a client.
bool isAmbiguous(char letter) { return static_cast<unsigned char>(letter) >= 0x80 || letter == '@' || letter == '%'; }

/// RFC 3986, section 2: what a URL carries only as "%" and two digits. Clients differ in what they make of the rest,
/// and some would refuse it only once something is to be sent.
bool isWellFormed(std::string_view url) {
    for (std::size_t at = 0; at < url.size(); ++at) {
        const auto letter = url[at];
        if (static_cast<unsigned char>(letter) <= 0x20 || letter == 0x7F) return false;
        if (std::string_view("\"<>\\^`{|}").find(letter) != std::string_view::npos) return false;
        const auto digits = url.substr(at + 1, 2);
        const bool isEscape = digits.size() == 2 && digits.find_first_not_of(kHexDigits) == digits.npos;
        if (letter == '%' && !isEscape) return false;
    }
    return true;
}

}  // namespace

bool isAllowed(std::string_view url) {
    if (!isWellFormed(url)) return false;
    const auto separator = url.find("://");
    if (separator == url.npos) return false;
    const auto scheme = lowered(url.substr(0, separator));
    url.remove_prefix(separator + 3);
    const auto authority = lowered(url.substr(0, url.find_first_of("/?#")));
    if (std::ranges::any_of(authority, isAmbiguous)) return false;
    const auto host = hostOf(authority);
    return scheme == "https" ? !host.empty() : scheme == "http" && isLoopback(host);
}

std::string refusalOf(std::string_view variable) {
    return base::filled(base::localized("The address in {0} cannot be used, so nothing is sent: give https://host/path "
                                        "without a user name, or http:// to this machine."),
                        {variable});
}

}  // namespace tessivox::telemetry
