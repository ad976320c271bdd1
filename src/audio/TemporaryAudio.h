#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "audio/CafFile.h"
#include "audio/RecordingFiles.h"

namespace tessivox::audio {

/// The CAF files of a running recording, its only durable state until it is saved. The stereo file is locked against
/// recovery by another process for as long as this object lives.
class TemporaryAudio {
public:
    /// Makes the files. Throws base::FileError, and then leaves nothing behind.
    TemporaryAudio(base::Files& files, const RecordingFiles& names, double sampleRate, bool separateTracks);
    TemporaryAudio(const TemporaryAudio&) = delete;
    TemporaryAudio& operator=(const TemporaryAudio&) = delete;

    /// Writes a chunk of stereo frames to its place, in the mono files too. A failure of the stereo file is returned as
    /// a sentence; the frames are then lost, and later ones still land where they belong. Write queue.
    std::optional<std::string> write(std::int64_t firstFrame, std::span<const float> interleaved);
    /// Frames of the stereo file that could not be written. Write queue.
    std::uint64_t lostFrames() const { return lostFrames_; }

    /// Brings what is written to the disk, and once the files' names; throws base::FileError. Sync queue, beside the
    /// writing.
    void sync();

    /// Removes the files. Both queues idle.
    void remove() noexcept;

private:
    base::Files& files_;
    RecordingFiles names_;
    std::unique_ptr<CafWriter> stereo_;
    std::vector<std::unique_ptr<CafWriter>> mono_;      ///< none, or microphone and system
    std::vector<std::unique_ptr<base::File>> syncing_;  ///< the same files, opened for the sync queue
    bool areNamesSynced_ = false;                       ///< sync queue
    std::vector<float> channel_;
    std::uint64_t lostFrames_ = 0;

    std::unique_ptr<base::File> createLocked(const std::filesystem::path& path);
    std::unique_ptr<CafWriter> make(Track track, const AudioFormat& format);
    void writeMono(std::size_t side, std::uint64_t firstFrame, std::span<const float> interleaved);
};

/// Copies one channel out of interleaved stereo samples.
void extractChannel(std::span<const float> interleaved, std::size_t side, std::vector<float>& channel);

}  // namespace tessivox::audio
