#include "app/TranscriptionKit.h"

#include <filesystem>
#include <functional>
#include <string_view>
#include <variant>

#include "base/Uuid.h"
#include "platform/linux/posix/RandomBytes.h"
#include "platform/linux/posix/XdgFolders.h"

#ifndef TESSIVOX_VERSION
#error "The build defines TESSIVOX_VERSION."
#endif

namespace tessivox::app {
namespace {

constexpr std::string_view kServerPreference = "serverURL";
constexpr const char* kServerVariable = "TESSIVOX_SERVER";

std::filesystem::path ownFolder(const std::filesystem::path& folder) { return folder / "Tessivox"; }

std::string makeUuid() { return base::makeUuid(posix::fillRandom); }

std::optional<std::string> textPreference(const base::Preferences& preferences, std::string_view key) {
    const auto value = preferences.value(key);
    const auto* text = value ? std::get_if<std::string>(&*value) : nullptr;
    return text ? std::optional(*text) : std::nullopt;
}

/// Asked at each request, since the settings may change meanwhile.
std::function<transcription::ServerSettings()> serverSettings(const std::optional<std::string>& option,
                                                              const base::Preferences& preferences) {
    const auto environment = posix::processEnvironment();
    return [option, variable = environment(kServerVariable), &preferences] {
        return transcription::ServerSettings{option, variable, textPreference(preferences, kServerPreference)};
    };
}

}  // namespace

void requireUsableServer(const std::optional<std::string>& option, const base::Preferences& preferences) {
    static_cast<void>(transcription::configuredServer(serverSettings(option, preferences)()));
}

TranscriptionKit::TranscriptionKit(const Surroundings& around)
    : hasServerOption_(around.server.has_value()),
      local_(around.loop, posix::localServerOptions(posix::processEnvironment())),
      choice_(serverSettings(around.server, around.preferences),
              {[this] { return local_.baseURL(); }, [this] { return local_.lastURL(); }}),
      identity_(around.preferences, around.files, ownFolder(around.folders.applicationSupport) / "device-token.json",
                makeUuid),
      client_({around.http, choice_, identity_, TESSIVOX_VERSION, makeUuid}),
      conversion_(around.loop, around.files),
      uploadCopies_({around.loop, around.files, conversion_, around.folders.temporary, makeUuid}),
      service_({around.loop, around.files, around.preferences, around.settings, around.storage, client_, choice_,
                identity_, uploadCopies_, around.network, around.alerts, around.analytics, around.crashReporter,
                ownFolder(around.folders.applicationSupport), TESSIVOX_VERSION, makeUuid}) {}

bool TranscriptionKit::isServerChosenHere() const {
    return hasServerOption_ || !posix::processEnvironment()(kServerVariable).value_or("").empty();
}

}  // namespace tessivox::app
