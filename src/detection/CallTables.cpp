#include "detection/CallTables.h"

#include <algorithm>

namespace tessivox::detection {
namespace {

bool beginsWithOneOf(std::string_view bundleID, const auto& prefixes) {
    return std::ranges::any_of(prefixes, [&](std::string_view prefix) { return bundleID.starts_with(prefix); });
}

/// `word` is in small letters; ASCII.
bool containsInAnyCase(std::string_view text, std::string_view word) {
    const auto isSame = [](char letter, char wanted) {
        return (letter >= 'A' && letter <= 'Z' ? letter + ('a' - 'A') : letter) == wanted;
    };
    return std::search(text.begin(), text.end(), word.begin(), word.end(), isSame) != text.end();
}

}  // namespace

int appTier(std::string_view bundleID) {
    if (beginsWithOneOf(bundleID, kKnownCallApps) || containsInAnyCase(bundleID, "telemost")) return 0;
    return beginsWithOneOf(bundleID, kBrowserPrefixes) ? kBrowserTier : 2;
}

bool isBuiltInExclusion(std::string_view bundleID) {
    return std::ranges::find(kBuiltInExclusions, bundleID) != kBuiltInExclusions.end();
}

bool isCovered(std::string_view bundleID, std::string_view entry) {
    return bundleID.starts_with(entry) && (bundleID.size() == entry.size() || bundleID[entry.size()] == '.');
}

}  // namespace tessivox::detection
