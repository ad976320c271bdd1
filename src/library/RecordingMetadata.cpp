#include "library/RecordingMetadata.h"

#include <cerrno>

#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;

std::string nameOf(const Path& url) { return url.filename().native(); }

void report(const base::FileError& error) { base::log("[Metadata] " + error.description()); }

}  // namespace

AttributeFile& RecordingMetadata::fallbackFor(const Path& url) {
    const auto folder = url.parent_path();
    if (!fallback_ || fallback_->folder() != folder) fallback_.emplace(files_, folder);
    return *fallback_;
}

std::optional<std::string> RecordingMetadata::read(const Path& url, const std::string& attribute) {
    const auto value = stored(url, attribute);
    if (!value || !base::isUTF8(*value)) return std::nullopt;
    const auto text = base::trimmed(*value);
    return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

std::optional<std::string> RecordingMetadata::stored(const Path& url, const std::string& attribute) {
    try {
        auto value = files_.attribute(url, attribute);
        return value ? value : fallbackFor(url).value(nameOf(url), attribute);
    } catch (const base::FileError&) {
        return std::nullopt;
    }
}

void RecordingMetadata::write(const Path& url, const std::optional<std::string>& value, const std::string& attribute) {
    if (!files_.exists(url)) return;
    const auto text = base::trimmed(value ? std::string_view(*value) : std::string_view());
    if (text.empty()) {
        remove(url, attribute);
    } else {
        store(url, attribute, text);
    }
}

void RecordingMetadata::store(const Path& url, const std::string& attribute, std::string_view value) {
    try {
        try {
            files_.setAttribute(url, attribute, value);
        } catch (const base::FileError& error) {
            if (error.code() != ENOTSUP) throw;
            fallbackFor(url).set(nameOf(url), attribute, value);
        }
    } catch (const base::FileError& error) {
        base::log("[Metadata] setxattr " + attribute + " failed for " + url.string() + ": errno " +
                  std::to_string(error.code()));
    }
}

void RecordingMetadata::remove(const Path& url, const std::string& attribute) {
    try {
        files_.removeAttribute(url, attribute);
        fallbackFor(url).set(nameOf(url), attribute, std::nullopt);
    } catch (const base::FileError& error) {
        report(error);
    }
}

void RecordingMetadata::moved(const Path& from, const Path& to) {
    if (from.parent_path() != to.parent_path()) return;
    try {
        fallbackFor(to).renamed(nameOf(from), nameOf(to));
    } catch (const base::FileError& error) {
        report(error);
    }
}

std::optional<FileIdentity> RecordingMetadata::identityOf(const Path& url) {
    return fallbackFor(url).identityOf(nameOf(url));
}

void RecordingMetadata::forget(const Path& url, const std::optional<FileIdentity>& identity) {
    if (!identity) return;
    try {
        fallbackFor(url).forget(nameOf(url), *identity);
    } catch (const base::FileError& error) {
        report(error);
    }
}

}  // namespace tessivox::library
