#pragma once

#include <optional>

#include "core/ports/RunningProgram.h"

typedef struct _GVariant GVariant;

/// How the running program is reached on the session bus.
namespace tessivox::gio {

inline constexpr const char* kControlName = "com.tessivox.Tessivox";
inline constexpr const char* kControlPath = "/com/tessivox/Tessivox";
inline constexpr const char* kControlInterface = "com.tessivox.Tessivox";
/// D-Bus activation as desktop files use it (Desktop Entry Specification 1.5, "D-Bus Activation").
inline constexpr const char* kApplicationInterface = "org.freedesktop.Application";
/// A request was refused or has failed; the message is a sentence for the user.
inline constexpr const char* kRefusedError = "com.tessivox.Tessivox.Error.Refused";

/// The method of a request; that of `activate` belongs to the other interface.
const char* methodOf(core::ProgramRequest request);
/// The request that a method of the control interface, or an action with the same name in small letters, stands for.
std::optional<core::ProgramRequest> requestOf(const char* method);

/// "a{sv}" with Recording (b), Paused (b), CallDetected (b), Seconds (d) and File (s): a file URL, or empty; and with
/// MissingSeconds (d) if there are any. Floating.
GVariant* variantOf(const core::ProgramStatus& status);
/// What such a dictionary says; what it lacks, or has of another type, is as in a program that does nothing.
core::ProgramStatus statusOf(GVariant* dictionary);
/// One of the dictionary's values; null for a name that it does not have. Floating.
GVariant* valueOf(const core::ProgramStatus& status, const char* name);

}  // namespace tessivox::gio
