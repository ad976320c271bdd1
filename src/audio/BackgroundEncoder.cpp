#include "audio/BackgroundEncoder.h"

#include <utility>

#include "audio/TemporaryAudio.h"
#include "base/Log.h"

namespace tessivox::audio {

BackgroundEncoder::BackgroundEncoder(base::Files& files, AudioEncoderFactory& encoders, base::TaskQueue& queue,
                                     RecordingFiles names, const EncodingSettings& settings, bool separateTracks)
    : files_(files),
      encoders_(encoders),
      queue_(queue),
      names_(std::move(names)),
      settings_(settings),
      wanted_{Track::stereo} {
    if (separateTracks) wanted_.assign(kTracks.begin(), kTracks.end());
}

void BackgroundEncoder::add(std::int64_t firstFrame, std::span<const float> interleaved, bool isInTemporary) {
    auto chunk = std::make_shared<Chunk>();
    chunk->firstFrame = static_cast<std::uint64_t>(firstFrame);
    chunk->frames = interleaved.size() / 2;
    if (!isInTemporary || inMemory_ < kLongestBacklog) {
        chunk->samples.assign(interleaved.begin(), interleaved.end());
        ++inMemory_;
    }
    queue_.post([self = shared_from_this(), chunk] {
        const bool wasInMemory = !chunk->samples.empty();
        self->encode(*chunk);
        if (wasInMemory) --self->inMemory_;
    });
}

void BackgroundEncoder::encode(Chunk& chunk) {
    if (!std::exchange(isOpen_, true)) open();
    if (chunk.samples.empty() && !readBack(chunk)) {
        tracks_ = {};
        return;
    }
    for (const auto track : wanted_) {
        onTrack(track, [&](TrackEncoder& encoder) {
            if (track == Track::stereo) return encoder.write(chunk.samples);
            extractChannel(chunk.samples, track == Track::microphone ? 0 : 1, channel_);
            encoder.write(channel_);
        });
    }
}

void BackgroundEncoder::open() {
    for (const auto track : wanted_) {
        auto& slot = tracks_[static_cast<std::size_t>(track)];
        try {
            slot = std::make_unique<TrackEncoder>(files_, encoders_, names_, track, settings_.of(track));
        } catch (const base::Error& error) {
            base::log("Encoding beside the recording is not possible: " + error.description());
        }
    }
}

bool BackgroundEncoder::readBack(Chunk& chunk) {
    try {
        chunk.samples.resize(chunk.frames * 2);
        // Opened anew: the reader takes the file's length once.
        CafReader reader(files_.open(names_.temporary(Track::stereo), base::FileAccess::read));
        return reader.read(chunk.firstFrame, chunk.samples) == chunk.frames;
    } catch (const base::Error& error) {
        base::log("The temporary recording cannot be read back: " + error.description());
        return false;
    }
}

BackgroundEncoder::FinishedTracks BackgroundEncoder::finish(std::uint64_t frames) {
    for (const auto track : wanted_) onTrack(track, [frames](TrackEncoder& encoder) { encoder.finish(frames); });
    return std::move(tracks_);
}

template <typename Work>
void BackgroundEncoder::onTrack(Track track, Work work) {
    auto& slot = tracks_[static_cast<std::size_t>(track)];
    if (!slot) return;
    try {
        work(*slot);
    } catch (const base::Error& error) {
        base::log("Encoding beside the recording failed: " + error.description());
        slot.reset();
    }
}

}  // namespace tessivox::audio
