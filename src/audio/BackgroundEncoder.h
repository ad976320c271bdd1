#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "audio/TrackEncoder.h"
#include "base/TaskQueue.h"

namespace tessivox::audio {

/// Encodes a recording while it runs, so that stopping it takes no time. Failing is harmless here: the temporary CAF
/// holds the same audio and is then encoded at the stop. Shared by the queue's work that is still to be done.
class BackgroundEncoder : public std::enable_shared_from_this<BackgroundEncoder> {
public:
    /// Everything referred to outlives it. Opens nothing yet.
    BackgroundEncoder(base::Files& files, AudioEncoderFactory& encoders, base::TaskQueue& queue, RecordingFiles names,
                      const EncodingSettings& settings, bool separateTracks);

    /// Takes the next chunk of stereo frames. One that is not in the temporary CAF is kept in memory until it is
    /// encoded; of the others only some are, the rest is read back from there. Write queue.
    void add(std::int64_t firstFrame, std::span<const float> interleaved, bool isInTemporary);

    /// Ends the tracks and gives those that hold exactly `frames` frames; null where one failed. Encode queue, after
    /// the last chunk.
    using FinishedTracks = std::array<std::unique_ptr<TrackEncoder>, kTracks.size()>;
    FinishedTracks finish(std::uint64_t frames);

private:
    static constexpr int kLongestBacklog = 10;  ///< chunks in memory

    struct Chunk {
        std::uint64_t firstFrame = 0;
        std::size_t frames = 0;
        std::vector<float> samples;  ///< empty: to be read from the temporary CAF
    };

    base::Files& files_;
    AudioEncoderFactory& encoders_;
    base::TaskQueue& queue_;
    RecordingFiles names_;
    EncodingSettings settings_;
    std::vector<Track> wanted_;
    std::atomic<int> inMemory_ = 0;

    // Encode queue only.
    bool isOpen_ = false;
    FinishedTracks tracks_;
    std::vector<float> channel_;

    void encode(Chunk& chunk);
    void open();
    bool readBack(Chunk& chunk);
    template <typename Work>
    void onTrack(Track track, Work work);
};

}  // namespace tessivox::audio
