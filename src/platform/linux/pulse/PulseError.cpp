#include "platform/linux/pulse/PulseError.h"

#include <pulse/def.h>

#include "base/Text.h"

namespace tessivox::pulse {
namespace {

std::string_view sentence(PulseFailure failure) {
    switch (failure) {
        case PulseFailure::noServer:
            return "No sound server is running. Start PipeWire or PulseAudio, or set PULSE_SERVER to the address of "
                   "one.";
        case PulseFailure::accessDenied:
            return "The sound server refused access. Run Tessivox as the user who is logged in, and allow it to use "
                   "sound.";
        case PulseFailure::noAnswer:
            return "The sound server does not answer. Restart PipeWire or PulseAudio.";
        case PulseFailure::connectionLost:
            return "The sound server has ended. Start PipeWire or PulseAudio again.";
        case PulseFailure::microphoneMissing:
            return "The microphone \"{0}\" is not connected. Plug it in or choose another one.";
        case PulseFailure::notAMicrophone:
            return "\"{0}\" is the sound of an output, not a microphone. Choose a microphone.";
        case PulseFailure::outputMissing:
            return "The computer's sound cannot be recorded: there is no output \"{0}\". Choose an output in the "
                   "sound settings.";
        case PulseFailure::deviceRemoved:
            return "\"{0}\" was unplugged or switched off. Plug it in again or choose another device.";
        case PulseFailure::captureRefused:
            return "The sound server did not let \"{0}\" be recorded. Close other programs that use it, and try "
                   "again.";
        case PulseFailure::noResources:
            return "There is not enough memory to reach the sound server. Close other programs, and try again.";
        case PulseFailure::nothingToReset:
            return "Linux keeps no permission for the computer's sound that could be reset. Choose an output in the "
                   "sound settings instead.";
    }
    return {};
}

}  // namespace

base::Error makeError(PulseFailure failure, std::string_view detail) {
    return {"pulse", static_cast<int>(failure), base::filled(base::localized(sentence(failure)), {detail})};
}

base::Error makeConnectionError(int pulseCode) {
    switch (pulseCode) {
        case PA_ERR_ACCESS:
        case PA_ERR_AUTHKEY:
            return makeError(PulseFailure::accessDenied);
        case PA_ERR_CONNECTIONTERMINATED:
            return makeError(PulseFailure::connectionLost);
        case PA_ERR_TIMEOUT:
            return makeError(PulseFailure::noAnswer);
        default:
            return makeError(PulseFailure::noServer);
    }
}

}  // namespace tessivox::pulse
