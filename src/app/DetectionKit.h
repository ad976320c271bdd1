#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "app/Console.h"
#include "app/ConsoleToasts.h"
#include "app/ProgramControl.h"
#include "app/RecorderKit.h"
#include "base/Signal.h"
#include "base/ports/Preferences.h"
#include "core/ports/Alerts.h"
#include "detection/CallDetector.h"
#include "detection/LeftTranscriptions.h"
#include "detection/RecordingController.h"
#include "detection/RecordingPromptWindowController.h"
#include "detection/SessionGuard.h"
#include "detection/StopRecordingPromptWindowController.h"
#include "library/RecordingStorage.h"
#include "platform/linux/desktop/DesktopApplications.h"
#include "platform/linux/desktop/DesktopEntries.h"
#include "platform/linux/desktop/ProcessIdentities.h"
#include "platform/linux/gio/BusThread.h"
#include "platform/linux/gio/ControlService.h"
#include "platform/linux/gio/LogindSession.h"
#include "platform/linux/gio/NotificationToasts.h"
#include "platform/linux/pulse/PulseInputUse.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"
#include "transcription/TranscriptionService.h"

namespace tessivox::app {

/// Makes what notices calls and drives recordings, with all that it asks of this machine: from its construction on
/// calls are acted upon and the program answers on the session bus. Main thread.
class DetectionKit {
public:
    struct Surroundings {
        RecorderKit::Surroundings recorder;
        Console& console;
        base::Preferences& preferences;
        library::RecordingStorage& storage;
        transcription::TranscriptionService& transcription;
        core::Alerts& alerts;
        telemetry::Analytics& analytics;
        telemetry::CrashReporter& crashReporter;
        std::function<bool()> canRecord;   ///< whether the permissions allow it
        std::function<void()> endProgram;  ///< at the session's end, once all is saved
    };
    explicit DetectionKit(Surroundings around);
    DetectionKit(const DetectionKit&) = delete;
    DetectionKit& operator=(const DetectionKit&) = delete;

    /// The session has ended, and what was recorded is being saved.
    bool isSavingForGood() const { return guard_.isEnding(); }

private:
    Surroundings around_;
    RecorderKit recording_;
    detection::LeftTranscriptions left_;
    desktop::DesktopEntries entries_;
    desktop::ProcessIdentities identities_;
    desktop::DesktopApplications applications_;
    pulse::PulseInputUse inputUse_;
    gio::BusThread bus_;
    ConsoleToasts consoleToasts_;
    gio::NotificationToasts toasts_;
    detection::CallDetector detector_;
    detection::RecordingPromptWindowController startPrompt_;
    detection::StopRecordingPromptWindowController stopPrompt_;
    detection::RecordingController controller_;
    gio::LogindSession session_;
    detection::SessionGuard guard_;
    ProgramControl control_;
    std::optional<gio::ControlService> service_;
    std::vector<base::Subscription> changes_;

    detection::RecordingController::Parts controllerParts();
    std::optional<detection::InputProcess> identify(const pulse::Declaration& declaration);
    void offerControl();
};

}  // namespace tessivox::app
