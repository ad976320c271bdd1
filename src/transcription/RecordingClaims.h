#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "base/ports/Files.h"

namespace tessivox::transcription {

/// Which process works on which recording, so that no two upload it or wait for its task: a locked file for each, named
/// by the recording's inode, since a recording may be renamed meanwhile. A process that dies loses its locks. Main
/// thread.
class RecordingClaims {
public:
    /// Held while a recording is worked on; destroying it gives the recording free.
    class Claim {
    public:
        Claim() = default;
        Claim(base::Files& files, std::filesystem::path path, std::unique_ptr<base::File> file)
            : files_(&files), path_(std::move(path)), file_(std::move(file)) {}
        Claim(Claim&&) = default;
        Claim& operator=(Claim&&) = delete;
        ~Claim() {
            if (file_) files_->removeIfPossible(path_);
        }

    private:
        base::Files* files_ = nullptr;
        std::filesystem::path path_;
        std::unique_ptr<base::File> file_;
    };

    RecordingClaims(base::Files& files, std::filesystem::path folder) : files_(files), folder_(std::move(folder)) {}

    /// Absent if the recording is claimed, here or by another process. A recording that is not there, and a folder
    /// without locks, give a claim that keeps nobody out.
    std::optional<Claim> claim(const std::filesystem::path& recording);
    /// Changes nothing in the folder.
    bool isClaimed(const std::filesystem::path& recording) const;
    /// Removes the files of processes that died.
    void sweep();

private:
    base::Files& files_;
    std::filesystem::path folder_;

    std::optional<std::filesystem::path> fileFor(const std::filesystem::path& recording) const;
    std::unique_ptr<base::File> openOrCreate(const std::filesystem::path& path);
};

}  // namespace tessivox::transcription
