#pragma once

#include <functional>
#include <string_view>

namespace tessivox::base {

/// Takes one finished diagnostic line (UTF-8, no newline). Called on any thread, one line at a time.
using LogSink = std::function<void(std::string_view line)>;

/// Replaces the process's sink; empty switches logging off, which is the start state. Diagnostics are the one thing
/// that every layer reaches without being handed it: no decision depends on them. Any thread.
void setLogSink(LogSink sink);

/// Whether a sink is set, so that costly lines need not be built. Any thread.
bool isLogging() noexcept;

/// Hands a diagnostic line to the sink. Never shown to a user. Any thread but a capture callback.
void log(std::string_view line);

}  // namespace tessivox::base
