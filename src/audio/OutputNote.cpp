#include "audio/OutputNote.h"

namespace tessivox::audio {
namespace {

constexpr const char* kOutputAttribute = "user.com.tessivox.output";
constexpr std::size_t kLongestPath = 4096;  // Linux's PATH_MAX

/// What a disk holds may have been damaged, or written by others.
bool isOutputOf(const RecordingFiles& names, const std::string& text) {
    const std::filesystem::path path(text);
    const bool isPlain = text.size() < kLongestPath && text.find('\0') == std::string::npos && path.is_absolute() &&
                         path.lexically_normal() == path;
    return isPlain && path.stem() == names.baseName() && names.mayBeSavedAs(path.filename().native());
}

}  // namespace

void noteOutput(base::Files& files, const RecordingFiles& names) noexcept {
    try {
        const auto output = files.canonical(names.outputFolder()) / names.final(Track::stereo).filename();
        files.setAttribute(names.temporary(Track::stereo), kOutputAttribute, output.native());
    } catch (const base::FileError&) {
        // At worst a recording that was saved just before a kill comes back a second time.
    }
}

std::optional<RecordingFiles> notedOutput(const base::Files& files, const RecordingFiles& names) {
    try {
        const auto text = files.attribute(names.temporary(Track::stereo), kOutputAttribute);
        if (!text || !isOutputOf(names, *text)) return std::nullopt;
        RecordingFiles noted(names.incompleteFolder(), *text);
        if (noted.outputFolder() == names.outputFolder()) return std::nullopt;
        return noted;
    } catch (const base::FileError&) {
        return std::nullopt;
    }
}

}  // namespace tessivox::audio
