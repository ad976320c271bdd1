#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "audio/AudioEncoder.h"
#include "audio/RecordingFiles.h"

namespace tessivox::audio {

/// How the tracks of a recording are encoded.
struct EncodingSettings {
    double sampleRate = 48000;
    int stereoBitrate = 128000;  ///< bits per second

    AudioEncoding of(Track track) const;
};

/// Encodes one track of a recording into its hidden file and gives it its final name. Unless that was done, the hidden
/// file is removed with the object. Meanwhile it is locked, where the file system can do that, against other processes
/// that look for leftovers. Operations throw base::Error. One thread at a time.
class TrackEncoder {
public:
    TrackEncoder(base::Files& files, AudioEncoderFactory& encoders, const RecordingFiles& names, Track track,
                 const AudioEncoding& encoding);
    TrackEncoder(const TrackEncoder&) = delete;
    TrackEncoder& operator=(const TrackEncoder&) = delete;
    ~TrackEncoder();

    /// Takes the track's own samples: stereo ones interleaved.
    void write(std::span<const float> samples) { encoder_->write(samples); }
    /// Takes the track's next packets instead, which were encoded elsewhere.
    void add(const AudioPackets& packets) { encoder_->add(packets); }
    /// Ends the file and brings it to the disk; throws if it does not hold exactly that many frames.
    void finish(std::uint64_t expectedFrames);
    /// Moves the finished file to `target`, which must not exist.
    void publish(const std::filesystem::path& target);

private:
    base::Files& files_;
    std::filesystem::path hidden_;
    std::unique_ptr<base::File> lock_;
    std::unique_ptr<AudioEncoder> encoder_;
    bool isPublished_ = false;

    /// Removes what a crash has left under the name; throws if somebody is still writing it.
    void removeLeftover();
    void lock();
};

}  // namespace tessivox::audio
