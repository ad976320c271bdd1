#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/StandardFolders.h"
#include "base/ports/Files.h"

namespace tessivox::audio {

/// The parts that a recording is saved in: the stereo file, and one mono file a source.
enum class Track { stereo, microphone, system };
inline constexpr std::array kTracks{Track::stereo, Track::microphone, Track::system};

/// The folder of temporary recordings, which may not exist yet.
std::filesystem::path incompleteFolder(const base::StandardFolders& folders);

/// All names of one recording, from the `.m4a` it is to become. The names of the temporary files are a format: an
/// interrupted recording is found by them. Every name fits a file system's 255 bytes if the base has at most 243: where
/// a number follows a long one, the base loses its end.
class RecordingFiles {
public:
    static constexpr std::size_t kLongestBase = 243;  ///< bytes
    /// What is made for a moment in a folder to see whether that can be written to.
    static constexpr const char* kProbe = ".tessivox-probe";

    RecordingFiles(std::filesystem::path incompleteFolder, const std::filesystem::path& output);

    /// The `.m4a` of a track; the stereo one is the recording itself.
    std::filesystem::path final(Track track) const;
    /// The hidden file beside it while it is being encoded.
    std::filesystem::path hidden(Track track) const;
    /// The temporary CAF.
    std::filesystem::path temporary(Track track) const;
    /// The temporary CAF's name once it is not needed any more and merely waits for its removal.
    std::filesystem::path discarded(Track track) const;
    /// Where raw audio goes that could not be encoded; the names of higher numbers than 1 are for where those of lower
    /// ones are taken.
    std::filesystem::path rescued(int number) const;

    /// The recording's base name, if this is the name of a stereo temporary file.
    static std::optional<std::string> baseOfTemporary(std::string_view name);
    /// The recording's base name, if this is the name of a temporary file of one source.
    static std::optional<std::string> baseOfSeparateTrack(std::string_view name);
    /// Whether a temporary file of that name waits for its removal.
    static bool isDiscarded(std::string_view name);
    /// The base names of the recordings whose hidden file may have this name; none if it is no such name.
    static std::vector<std::string> basesOfHidden(std::string_view name);
    /// The name of a recording that came back while its own name, and those of lower numbers, were taken.
    std::filesystem::path recovered(int number) const;
    /// Whether this is a name that the recording may have been saved or recovered under, ".M4A" being like ".m4a".
    bool mayBeSavedAs(std::string_view name) const;

    /// Brings to the disk that temporary files were renamed or removed, as far as that is possible: a recording that
    /// the user renames or removes next is not to come back after a power failure.
    void syncTemporaries(base::Files& files) const noexcept;

    const std::string& baseName() const { return base_; }
    const std::filesystem::path& incompleteFolder() const { return incompleteFolder_; }
    const std::filesystem::path& outputFolder() const { return outputFolder_; }

    /// Whether the recording, or one of its temporary files, exists.
    bool isTaken(const base::Files& files) const;
    /// The same recording under the first name that is free: "x", "x_2", "x_3" and so on.
    RecordingFiles firstFree(const base::Files& files) const;

private:
    std::filesystem::path incompleteFolder_;
    std::filesystem::path outputFolder_;
    std::string base_;
    std::string extension_;

    /// The base with something after it, shortened so that this is a base too.
    std::string baseWith(const std::string& suffix) const;
};

}  // namespace tessivox::audio
