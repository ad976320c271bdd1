#include "audio/StereoTimeline.h"

#include <algorithm>
#include <utility>

namespace tessivox::audio {

StereoTimeline::StereoTimeline(std::size_t chunkFrames, ChunkHandler handler)
    : chunkFrames_(chunkFrames), handler_(std::move(handler)), chunk_(2 * chunkFrames) {
    // Two chunks beyond the longest lag: the rest of a chunk, and the piece that is being placed.
    for (auto& channel : channels_) channel.ring.resize((kLongestLag + 2) * chunkFrames);
}

void StereoTimeline::place(Source source, std::span<const float> samples, std::int64_t position) {
    while (!samples.empty()) {
        if (position < flushedFrames_) return;
        const auto piece = samples.first(std::min(samples.size(), chunkFrames_));
        // Far ahead of what has left, the time between goes first: chunk by chunk, never by a longer array.
        while (position + static_cast<std::int64_t>(piece.size()) - flushedFrames_ >
               static_cast<std::int64_t>((kLongestLag + 1) * chunkFrames_)) {
            writeChunk(chunkFrames_);
        }
        channels_[static_cast<std::size_t>(source)].write(static_cast<std::size_t>(position - flushedFrames_), piece);
        position += static_cast<std::int64_t>(piece.size());
        samples = samples.subspan(piece.size());
        while (shorter() >= chunkFrames_) writeChunk(chunkFrames_);
        while (longer() >= kLongestLag * chunkFrames_) writeChunk(chunkFrames_);
    }
}

void StereoTimeline::flushTail() {
    while (longer() > 0) writeChunk(std::min(longer(), chunkFrames_));
}

std::size_t StereoTimeline::shorter() const { return std::min(channels_[0].length, channels_[1].length); }
std::size_t StereoTimeline::longer() const { return std::max(channels_[0].length, channels_[1].length); }

void StereoTimeline::writeChunk(std::size_t frames) {
    const auto interleaved = std::span(chunk_).first(2 * frames);
    for (std::size_t side = 0; side < channels_.size(); ++side) {
        channels_[side].padTo(frames);
        channels_[side].take(frames, interleaved, side);
    }
    const auto first = std::exchange(flushedFrames_, flushedFrames_ + static_cast<std::int64_t>(frames));
    handler_(first, interleaved);
}

void StereoTimeline::Channel::write(std::size_t index, std::span<const float> samples) {
    padTo(index);
    const auto begin = (start + index) % ring.size();
    const auto untilWrap = std::min(samples.size(), ring.size() - begin);
    const auto rest = std::copy_n(samples.begin(), untilWrap, ring.begin() + static_cast<std::ptrdiff_t>(begin));
    if (rest == ring.end())
        std::copy(samples.begin() + static_cast<std::ptrdiff_t>(untilWrap), samples.end(), ring.begin());
    length = std::max(length, index + samples.size());
}

void StereoTimeline::Channel::padTo(std::size_t target) {
    while (length < target) {
        const auto begin = (start + length) % ring.size();
        const auto count = std::min(target - length, ring.size() - begin);
        std::fill_n(ring.begin() + static_cast<std::ptrdiff_t>(begin), count, 0.0F);
        length += count;
    }
}

void StereoTimeline::Channel::take(std::size_t frames, std::span<float> interleaved, std::size_t offset) {
    length -= frames;
    for (float* target = interleaved.data() + offset; frames > 0;) {
        const auto piece = std::span(ring).subspan(start, std::min(frames, ring.size() - start));
        for (const float sample : piece) {
            *target = sample;
            target += 2;
        }
        start = (start + piece.size()) % ring.size();
        frames -= piece.size();
    }
}

}  // namespace tessivox::audio
