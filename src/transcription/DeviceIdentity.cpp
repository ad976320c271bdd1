#include "transcription/DeviceIdentity.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/Log.h"
#include "transcription/ServerAddress.h"

namespace tessivox::transcription {
namespace {

using nlohmann::json;

constexpr const char* kDeviceID = "deviceID";
constexpr std::size_t kMostBytes = 65536;

/// Whether a header can carry the text: visible ASCII (RFC 9110, section 5.5), and some of it.
bool isHeaderText(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char letter) { return letter > ' ' && letter < '\x7f'; });
}

std::string textAt(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

}  // namespace

DeviceIdentity::DeviceIdentity(base::Preferences& preferences, base::Files& files, base::Files::Path tokenFile,
                               std::function<std::string()> makeUuid)
    : preferences_(preferences),
      files_(files),
      document_(files, std::move(tokenFile)),
      makeUuid_(std::move(makeUuid)) {}

std::string DeviceIdentity::deviceIdentifier() {
    const auto value = preferences_.value(kDeviceID);
    const auto* known = value ? std::get_if<std::string>(&*value) : nullptr;
    if (known && isHeaderText(*known)) return *known;
    auto made = makeUuid_();
    preferences_.set(kDeviceID, made);
    return made;
}

std::optional<std::string> DeviceIdentity::deviceToken(const std::string& baseURL) {
    auto found = stored();
    if (!found || found->origin != originOf(baseURL)) return std::nullopt;
    return std::move(found->token);
}

void DeviceIdentity::storeDeviceToken(const std::string& baseURL, const std::string& token) {
    const auto origin = originOf(baseURL);
    if (!origin || !isHeaderText(token)) return;
    const auto lock = document_.lock();
    document_.replace(json{{"origin", *origin}, {"token", token}}.dump() + "\n");
}

void DeviceIdentity::removeDeviceToken(const std::string& token) {
    const auto lock = document_.lock();
    const auto found = stored();
    if (found && found->token == token) files_.remove(document_.path());
}

std::optional<DeviceIdentity::Stored> DeviceIdentity::stored() {
    try {
        if (!files_.exists(document_.path())) return std::nullopt;
        const auto object = json::parse(files_.readAll(document_.path(), kMostBytes), nullptr, false);
        if (!object.is_object()) return std::nullopt;
        Stored found{textAt(object, "origin"), textAt(object, "token")};
        return isHeaderText(found.token) ? std::optional(std::move(found)) : std::nullopt;
    } catch (const base::FileError& error) {
        base::log("[Transcription] The device token cannot be read: " + error.description());
        return std::nullopt;
    }
}

}  // namespace tessivox::transcription
