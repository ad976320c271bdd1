#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "detection/ports/InputUseMonitor.h"
#include "platform/linux/pulse/Connection.h"

namespace tessivox::pulse {

/// Names the application that such a declaration stands for, and its process as this system counts it (0 if unknown).
/// Absent for what is never in a call: parts of the desktop's sound, and this program.
using IdentifyProcess = std::function<std::optional<detection::InputProcess>(const Declaration&)>;

/// The streams that take sound from a microphone now: those of programs, not paused, connected to a source that is no
/// monitor, and more than a level meter. Pure; in the server's order.
std::vector<SourceOutput> microphoneStreams(const std::vector<SourceOutput>& streams,
                                            const std::vector<Source>& sources);

/// Whether a stream is connected to a source that is not in the list, which is out of date then.
bool isSourceMissing(const std::vector<SourceOutput>& streams, const std::vector<Source>& sources);

/// What a program tells of itself, by its stream or else by its connection: not every stream repeats it.
Declaration joined(const Declaration& stream, const Declaration& client);

}  // namespace tessivox::pulse
