#include "transcription/RecordingClaims.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "base/Log.h"

namespace tessivox::transcription {
namespace {

using Path = std::filesystem::path;

constexpr std::string_view kPrefix = "transcribing-";
constexpr std::string_view kSuffix = ".lock";
/// Whoever gives a claim up removes the file under the lock, so one that was opened before that must be opened again.
constexpr int kAttempts = 3;

}  // namespace

std::optional<Path> RecordingClaims::fileFor(const Path& recording) const {
    const auto status = files_.status(recording);
    if (!status) return std::nullopt;
    return folder_ / (std::string(kPrefix) + std::to_string(status->device) + "-" + std::to_string(status->inode) +
                      std::string(kSuffix));
}

std::unique_ptr<base::File> RecordingClaims::openOrCreate(const Path& path) {
    try {
        return files_.create(path);
    } catch (const base::FileError& error) {
        if (error.code() != EEXIST) throw;
    }
    return files_.open(path, base::FileAccess::update);
}

std::optional<RecordingClaims::Claim> RecordingClaims::claim(const Path& recording) {
    const auto path = fileFor(recording);
    if (!path) return Claim();
    for (int attempt = 1;; ++attempt) {
        try {
            auto file = openOrCreate(*path);
            if (file->tryLock(*path)) return Claim(files_, *path, std::move(file));
            if (attempt == kAttempts) return std::nullopt;
        } catch (const base::FileError& error) {
            if (error.code() == ENOENT && attempt < kAttempts) continue;
            base::log("[Transcription] No lock: " + error.description());
            return Claim();
        }
    }
}

bool RecordingClaims::isClaimed(const Path& recording) const {
    const auto path = fileFor(recording);
    if (!path || !files_.exists(*path)) return false;
    try {
        return !files_.open(*path, base::FileAccess::read)->tryLock(*path);
    } catch (const base::FileError&) {
        return false;
    }
}

void RecordingClaims::sweep() {
    try {
        for (const auto& name : files_.list(folder_)) {
            const auto& text = name.native();
            if (text.starts_with(kPrefix) && text.ends_with(kSuffix)) files_.removeIfUnused(folder_ / name);
        }
    } catch (const base::FileError&) {
        // They are looked for at the next start again.
    }
}

}  // namespace tessivox::transcription
