#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace tessivox::audio {

/// The two sources of a recording; the microphone is the left channel, system audio the right one.
enum class Source { microphone = 0, system = 1 };

/// Lays mono samples of two sources on one timeline and hands it on in chunks. A gap is silence; where buffers of one
/// source overlap, the newer wins; what comes for frames that have left is dropped whole. Memory is fixed. One thread
/// at a time.
class StereoTimeline {
public:
    /// Takes the next frames: their first frame's number, and interleaved left and right samples.
    using ChunkHandler = std::function<void(std::int64_t firstFrame, std::span<const float> interleaved)>;

    /// A chunk is `chunkFrames` long, one second. A source that lags holds the other back for ten chunks at most.
    StereoTimeline(std::size_t chunkFrames, ChunkHandler handler);

    void place(Source source, std::span<const float> samples, std::int64_t position);
    /// Hands on all that is there, the shorter channel filled up with silence.
    void flushTail();
    /// Frames handed on so far.
    std::int64_t flushedFrames() const { return flushedFrames_; }

private:
    static constexpr std::size_t kLongestLag = 10;  ///< chunks

    /// The samples of one channel that have not left; the first one is frame `flushedFrames_`.
    struct Channel {
        std::vector<float> ring;
        std::size_t start = 0;
        std::size_t length = 0;

        void write(std::size_t index, std::span<const float> samples);
        void padTo(std::size_t target);
        void take(std::size_t frames, std::span<float> interleaved, std::size_t offset);
    };

    std::size_t chunkFrames_;
    ChunkHandler handler_;
    std::array<Channel, 2> channels_;
    std::vector<float> chunk_;
    std::int64_t flushedFrames_ = 0;

    std::size_t shorter() const;
    std::size_t longer() const;
    void writeChunk(std::size_t frames);
};

}  // namespace tessivox::audio
