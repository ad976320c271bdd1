#include "core/QuitGuard.h"

#include <utility>

#include "base/Text.h"

namespace tessivox::core {
namespace {

using base::localized;

constexpr std::size_t kQuitAnyway = 0;
constexpr std::size_t kKeepRecording = 1;

Alert question() {
    Alert alert;
    alert.style = AlertStyle::warning;
    alert.message = localized("A recording is in progress");
    alert.text = localized(
        "If you quit now, the current recording will be finalized and restored the next time you open Tessivox.");
    alert.buttons = {localized("Quit Anyway"), localized("Keep Recording")};
    alert.safeChoice = kKeepRecording;
    return alert;
}

}  // namespace

base::Task<bool> QuitGuard::shouldTerminate() {
    if (!state_.isRecording.get()) co_return true;
    auto alert = question();
    const auto choice = co_await alerts_.show(std::move(alert));
    co_return choice == kQuitAnyway;
}

}  // namespace tessivox::core
