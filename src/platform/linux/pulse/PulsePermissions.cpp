#include "platform/linux/pulse/PulsePermissions.h"

#include <algorithm>
#include <utility>

#include "base/Error.h"
#include "platform/linux/pulse/PulseError.h"

namespace tessivox::pulse {
namespace {

using core::MicrophoneAuthorization;

MicrophoneAuthorization authorizationWithout(const base::Error& failure) {
    const bool isRefusal = failure.code() == static_cast<int>(PulseFailure::accessDenied);
    return isRefusal ? MicrophoneAuthorization::denied : MicrophoneAuthorization::notDetermined;
}

}  // namespace

PulsePermissions::PulsePermissions(SoundServerLink& link, std::function<void(core::PrivacyPane)> openPane)
    : link_(link), openPane_(std::move(openPane)), tasks_(link.scheduler()) {
    linkChanges_ = link_.onChange([this] { look(); });
    look();
}

void PulsePermissions::look() {
    if (std::exchange(isReading_, true)) {
        isReadAgain_ = true;
        return;
    }
    tasks_.start(read());
}

base::Task<void> PulsePermissions::read() {
    do {
        isReadAgain_ = false;
        const auto answer = co_await answerOfServer();
        consider(answer);
        co_await link_.scheduler().sleep(base::Duration::zero());
    } while (isReadAgain_);
    isReading_ = false;
}

base::Task<PulsePermissions::Answer> PulsePermissions::answerOfServer() {
    Answer answer;
    try {
        const auto connection = co_await link_.connection();
        answer.microphone = MicrophoneAuthorization::authorized;
        const auto defaults = co_await connection->defaults();
        const auto sources = co_await connection->sources();
        answer.hasMonitor = std::ranges::any_of(
            sources, [&](const Source& source) { return source.isMonitor && source.monitoredSink == defaults.sink; });
    } catch (const base::Error& failure) {
        answer = {authorizationWithout(failure), false};
    }
    co_return answer;
}

bool PulsePermissions::isWorse(const Answer& answer, const Answer& before) {
    const auto isGranted = [](const Answer& one) { return one.microphone == MicrophoneAuthorization::authorized; };
    return (isGranted(before) && !isGranted(answer)) || (before.hasMonitor && !answer.hasMonitor);
}

void PulsePermissions::consider(const Answer& answer) {
    if (!told_ || !isWorse(answer, *told_)) {
        grace_.reset();
        return tell(answer);
    }
    worse_ = answer;
    if (!grace_) grace_ = link_.scheduler().after(kGrace, [this] { tell(worse_); });
}

void PulsePermissions::tell(const Answer& answer) {
    const bool isNews = told_ != answer;
    told_ = answer;
    for (const auto& waiting : std::exchange(waiting_, {})) waiting.succeed(true);
    if (isNews) changed_.emit();
}

base::Task<void> PulsePermissions::firstReading() {
    if (told_) co_return;
    const base::Completion<bool> isRead;
    waiting_.push_back(isRead);
    co_await isRead;
}

base::Task<MicrophoneAuthorization> PulsePermissions::microphone() {
    co_await firstReading();
    co_return told_->microphone;
}

base::Task<bool> PulsePermissions::requestMicrophone() {
    co_await firstReading();
    co_return told_->microphone == MicrophoneAuthorization::authorized;
}

base::Task<bool> PulsePermissions::canRecordScreen() {
    co_await firstReading();
    co_return told_->hasMonitor;
}

base::Task<void> PulsePermissions::askForShareableContent() { co_return; }

base::Task<void> PulsePermissions::resetScreenRecording() {
    throw makeError(PulseFailure::nothingToReset);
    co_return;
}

}  // namespace tessivox::pulse
