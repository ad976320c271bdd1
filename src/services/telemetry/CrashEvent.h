#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessivox::telemetry {

/// How the type of a hang's exception begins.
inline constexpr std::string_view kAppHanging = "App Hanging";

struct StackFrame {
    std::uint64_t address = 0;
    bool inApp = false;  ///< the application's own code
};

struct CrashException {
    std::string type;
    std::string value;
    std::vector<StackFrame> frames;  ///< innermost first
};

struct CrashThread {
    std::string name;
    std::vector<StackFrame> frames;
};

/// A report of a crash or a hang.
struct CrashEvent {
    std::vector<CrashException> exceptions;
    std::vector<CrashThread> threads;
};

/// Lets every report pass but those of a hang in which none of the application's own code was on a stack.
std::optional<CrashEvent> beforeSend(CrashEvent event);

}  // namespace tessivox::telemetry
