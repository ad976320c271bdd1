#include "library/RecoveryAnnouncement.h"

#include <string>
#include <utility>

#include "audio/Mpeg4Duration.h"
#include "base/Text.h"

namespace tessivox::library {
namespace {

/// In seconds; 0 if the file cannot be read.
double durationOf(base::Files& files, const std::filesystem::path& url) {
    try {
        const auto duration = audio::readMpeg4Duration(*files.open(url, base::FileAccess::read));
        return duration ? static_cast<double>(duration->duration) / duration->timescale : 0;
    } catch (const base::FileError&) {
        return 0;
    }
}

core::Alert alertFor(std::size_t count) {
    const bool isOne = count == 1;
    const auto text = isOne ? "Tessivox finished saving {0} recording that a previous session didn't get to finalize."
                            : "Tessivox finished saving {0} recordings that a previous session didn't get to finalize.";
    core::Alert alert;
    alert.message = base::localized(isOne ? "Recovered interrupted recording" : "Recovered interrupted recordings");
    alert.text = base::filled(base::localized(text), {std::to_string(count)});
    alert.buttons = {base::localized("OK")};
    return alert;
}

}  // namespace

base::Task<void> announceRecovery(base::Files& files, RecoveryListeners listeners,
                                  std::vector<std::filesystem::path> recovered) {
    if (recovered.empty()) co_return;
    for (const auto& url : recovered) listeners.addRecording(url, durationOf(files, url));
    listeners.track(recovered.size());
    auto alert = alertFor(recovered.size());
    co_await listeners.alerts.show(std::move(alert));
}

}  // namespace tessivox::library
