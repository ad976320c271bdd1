#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessivox::desktop {

/// One application of this system, or a family of one kind, that goes by an identifier of the tables of calls,
/// browsers and exclusions.
struct KnownApplication {
    std::string_view identifier;
    /// What it goes by here, the likeliest first: desktop entries, Flatpaks, snaps, programs. Small letters, with a
    /// blank between.
    std::string_view names;
};

/// The row that holds the name, in small letters or large; null if there is none.
const KnownApplication* knownApplication(std::string_view name);

/// All names that go by the identifier, the likeliest first.
std::vector<std::string> namesFor(std::string_view identifier);

std::vector<std::string> namesOf(const KnownApplication& application);

/// Whether what goes by this name takes sound from a microphone without ever being in a call: chains of filters, level
/// meters, parts of the sound server, speech for screen readers, and this program.
bool isNeverInCall(std::string_view name);

}  // namespace tessivox::desktop
