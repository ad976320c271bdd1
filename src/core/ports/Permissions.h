#pragma once

#include <functional>

#include "base/Signal.h"
#include "base/Task.h"

namespace tessivox::core {

/// What the system says of this program's access to the microphone.
enum class MicrophoneAuthorization { notDetermined, restricted, denied, authorized, unknown };

/// The parts of the system's settings in which the user changes what programs may do.
enum class PrivacyPane { screenRecording, microphone, privacy };

/// The system's grants for recording. Main thread. Nothing here throws unless it says so.
class Permissions {
public:
    virtual ~Permissions() = default;

    virtual base::Task<MicrophoneAuthorization> microphone() = 0;
    /// Asks the user, if the system does that at all, and gives the answer.
    virtual base::Task<bool> requestMicrophone() = 0;

    /// Whether the computer's sound may be recorded. A refusal and a question never asked are the same here.
    virtual base::Task<bool> canRecordScreen() = 0;
    /// Begins to ask the user, if the system does that at all. Gives what is granted at present, at once.
    virtual bool requestScreenRecording() = 0;
    /// Touches what the grant is about, so that the system lists this program in its settings.
    virtual base::Task<void> askForShareableContent() = 0;
    /// Takes the grant back, so that the system asks anew. Throws base::Error if that cannot be done.
    virtual base::Task<void> resetScreenRecording() = 0;

    virtual void open(PrivacyPane pane) = 0;
    /// Called after an answer of microphone() or canRecordScreen() may have changed by itself.
    virtual base::Subscription onChange(std::function<void()> handler) = 0;
};

}  // namespace tessivox::core
