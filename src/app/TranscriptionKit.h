#pragma once

#include <optional>
#include <string>

#include "app/ServerChoice.h"
#include "base/StandardFolders.h"
#include "base/ports/Files.h"
#include "base/ports/HttpClient.h"
#include "base/ports/Preferences.h"
#include "core/AppSettings.h"
#include "core/ports/Alerts.h"
#include "library/RecordingStorage.h"
#include "platform/linux/ffmpeg/SoundConversion.h"
#include "platform/linux/ffmpeg/UploadCopies.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/LocalServer.h"
#include "services/telemetry/Analytics.h"
#include "services/telemetry/CrashReporter.h"
#include "transcription/DeviceIdentity.h"
#include "transcription/ServerClient.h"
#include "transcription/TranscriptionService.h"
#include "transcription/ports/NetworkPath.h"

namespace tessivox::app {

/// Throws base::Error if what the user names as the server is not one that may be asked; to be called before work that
/// is in vain without one. The option is that of the command line.
void requireUsableServer(const std::optional<std::string>& option, const base::Preferences& preferences);

/// Makes the transcription service with all that it asks of this machine. Nothing is sent, and no server started,
/// before something is asked of it. Main thread.
class TranscriptionKit {
public:
    struct Surroundings {
        posix::EventLoop& loop;
        base::Files& files;
        const base::StandardFolders& folders;
        base::Preferences& preferences;
        core::AppSettings& settings;
        library::RecordingStorage& storage;
        core::Alerts& alerts;
        telemetry::Analytics& analytics;
        telemetry::CrashReporter& crashReporter;
        transcription::NetworkPath& network;
        base::HttpClient& http;
        std::optional<std::string> server;  ///< of the command line
    };
    explicit TranscriptionKit(const Surroundings& around);
    TranscriptionKit(const TranscriptionKit&) = delete;
    TranscriptionKit& operator=(const TranscriptionKit&) = delete;

    transcription::TranscriptionService& service() { return service_; }
    library::AudioConversion& conversion() { return conversion_; }
    /// Whether the command line or the environment names a server, so that other processes may use another one.
    bool isServerChosenHere() const;

private:
    const bool hasServerOption_;
    posix::LocalServer local_;
    ServerChoice choice_;
    transcription::DeviceIdentity identity_;
    transcription::ServerClient client_;
    ffmpeg::SoundConversion conversion_;
    ffmpeg::UploadCopies uploadCopies_;
    transcription::TranscriptionService service_;
};

}  // namespace tessivox::app
