#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "base/Completion.h"
#include "base/Signal.h"
#include "base/TaskScope.h"
#include "base/Timer.h"
#include "core/ports/Permissions.h"
#include "platform/linux/pulse/SoundServerLink.h"

namespace tessivox::pulse {

/// What a sound server lets this program record. The microphone is granted while the server can be reached, denied if
/// it refuses this user or program, and not determined while there is no server; the computer's sound is granted while
/// the default output has a monitor. Nobody is ever asked: Linux has no such question. Main thread.
class PulsePermissions final : public core::Permissions {
public:
    /// How long a worse answer must hold before it counts. A server that restarts is back within a few tenths of a
    /// second, its devices a little later, and that must not flicker; what is really gone still shows within a second.
    static constexpr base::Duration kGrace = std::chrono::milliseconds(600);

    /// `openPane` shows the user where sound is set up. The link outlives it.
    PulsePermissions(SoundServerLink& link, std::function<void(core::PrivacyPane)> openPane);

    base::Task<core::MicrophoneAuthorization> microphone() override;
    base::Task<bool> requestMicrophone() override;
    base::Task<bool> canRecordScreen() override;
    bool requestScreenRecording() override { return told_ && told_->hasMonitor; }
    base::Task<void> askForShareableContent() override;
    /// Always throws: there is nothing to reset.
    base::Task<void> resetScreenRecording() override;
    void open(core::PrivacyPane pane) override { openPane_(pane); }
    base::Subscription onChange(std::function<void()> handler) override { return changed_.observe(std::move(handler)); }

private:
    struct Answer {
        core::MicrophoneAuthorization microphone = core::MicrophoneAuthorization::notDetermined;
        bool hasMonitor = false;
        bool operator==(const Answer&) const = default;
    };

    SoundServerLink& link_;
    std::function<void(core::PrivacyPane)> openPane_;
    std::optional<Answer> told_;  ///< absent until the first reading
    std::vector<base::Completion<bool>> waiting_;
    base::Signal<> changed_;
    Answer worse_;  ///< the last reading, while the grace runs
    bool isReading_ = false;
    bool isReadAgain_ = false;
    base::Timer grace_;
    base::Subscription linkChanges_;
    base::TaskScope tasks_;

    static bool isWorse(const Answer& answer, const Answer& before);
    void look();
    base::Task<void> read();
    base::Task<Answer> answerOfServer();
    void consider(const Answer& answer);
    void tell(const Answer& answer);
    base::Task<void> firstReading();
};

}  // namespace tessivox::pulse
