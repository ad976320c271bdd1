#pragma once

#include <cstdint>
#include <stop_token>

#include "audio/BackgroundEncoder.h"
#include "audio/RecordingStopOutcome.h"
#include "audio/TemporaryEncoding.h"

namespace tessivox::audio {

/// A recording whose temporary files are complete and closed.
struct FinishedRecording {
    RecordingFiles names;
    EncodingSettings settings;
    bool separateTracks = false;
    std::uint64_t frames = 0;      ///< length of the timeline
    std::uint64_t lostFrames = 0;  ///< of these, what the temporary file lacks
};

/// Gives a finished recording its final name: from the encoder that ran beside it where that holds every frame, else by
/// encoding the temporary files now. The temporary files stay until the result is on the disk; where the encoding
/// fails, the raw audio is moved beside the output. Encode queue; long only if it must encode, and then stoppable.
class RecordingFinisher {
public:
    RecordingFinisher(EncodingTools tools, FinishedRecording recording)
        : tools_(std::move(tools)), files_(tools_.files), recording_(std::move(recording)) {}

    RecordingStopOutcome run(BackgroundEncoder::FinishedTracks tracks, const EncodingProgress& progress,
                             const std::stop_token& stop);

    /// Temporary files that run() has renamed out of the way, to be removed at leisure.
    const std::vector<std::filesystem::path>& discarded() const { return discarded_; }

private:
    EncodingTools tools_;
    base::Files& files_;
    FinishedRecording recording_;
    std::vector<std::filesystem::path> discarded_;

    Saved save(BackgroundEncoder::FinishedTracks tracks, const EncodingProgress& progress, const std::stop_token& stop);
    std::filesystem::path publish(BackgroundEncoder::FinishedTracks& tracks);
    void discardTemporaries();
    ConversionFailed rescue();
    std::filesystem::path moveBesideOutput();
    void syncRawAudio();
};

}  // namespace tessivox::audio
