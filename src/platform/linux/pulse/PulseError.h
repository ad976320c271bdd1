#pragma once

#include <string_view>

#include "base/Error.h"

namespace tessivox::pulse {

/// What can go wrong with the sound server; the code of a base::Error in the domain "pulse".
enum class PulseFailure {
    noServer = 1,       ///< nothing answers at the server's address
    accessDenied,       ///< the server refuses this user or program
    noAnswer,           ///< the server is there, but did not answer in time
    connectionLost,     ///< the server ended or dropped the connection
    microphoneMissing,  ///< no source of that name
    notAMicrophone,     ///< the source is the monitor of an output
    outputMissing,      ///< no monitor of that name
    deviceRemoved,      ///< the recorded device went away
    captureRefused,     ///< the server would not open the stream as asked
    noResources,        ///< no thread or memory for a connection
    nothingToReset,     ///< the server keeps no permission for this program
};

/// The error with its sentence for the user; `detail` is the device's name where the sentence has one.
base::Error makeError(PulseFailure failure, std::string_view detail = {});

/// The error for a code of libpulse (PA_ERR_...) that a connection or a stream ended with.
base::Error makeConnectionError(int pulseCode);

}  // namespace tessivox::pulse
