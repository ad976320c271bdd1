#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>

#include "audio/AudioRing.h"
#include "audio/BackgroundEncoder.h"
#include "audio/MonoMixer.h"
#include "audio/RecordingClock.h"
#include "audio/RecordingFinisher.h"
#include "audio/StereoTimeline.h"
#include "audio/TemporaryAudio.h"

namespace tessivox::audio {

/// The audio path of one recording, from the sources' buffers to the temporary files and the encoder beside them. Each
/// stage belongs to one thread; rings carry the audio between them.
class RecordingSession {
public:
    /// Tells a problem, a sentence for the user. Any thread.
    using ProblemHandler = std::function<void(const std::string&)>;

    /// Makes the temporary files; throws base::FileError.
    RecordingSession(base::Files& files, AudioConverterFactory& converters, const RecordingFiles& names,
                     const EncodingSettings& settings, bool separateTracks, ProblemHandler onProblem);

    /// The encoder that gets each chunk as it leaves.
    void setEncoder(std::shared_ptr<BackgroundEncoder> encoder) { encoder_ = std::move(encoder); }
    const std::shared_ptr<BackgroundEncoder>& encoder() const { return encoder_; }

    /// Copies a buffer in; what finds no room is left out and told. The source's capture thread: no lock, no
    /// allocation.
    void append(Source source, const AudioBuffer& buffer, base::HostTime time) noexcept;
    /// Main thread.
    void pause(base::HostTime now);
    void resume(base::HostTime now);
    /// After a pause the converters begin anew. Convert queue.
    void resetConverters();

    /// Places and converts what has come in; true if something is ready to be written. Convert queue.
    bool convert();
    /// Whether audio is left that has come in. Convert queue.
    bool isWaiting() { return earliest() != nullptr; }
    /// Whether convert() left audio waiting because the writing is behind; asking takes the answer back. Write queue.
    bool takeBlocked() { return isBlocked_.exchange(false); }
    /// Lays the converted audio on the timeline; true if a chunk has left. Write queue.
    bool write();
    /// Ends the timeline; returns its frames. Write queue, after the last write().
    std::int64_t close();
    /// Brings the temporary files to the disk. Sync queue.
    void sync();

    TemporaryAudio& temporary() { return temporary_; }
    FinishedRecording finished() const;
    int bufferCount(Source source) const { return inlets_[static_cast<std::size_t>(source)].buffers; }
    std::stop_source& stopSource() { return stopSource_; }

private:
    struct Incoming {
        AudioFormat format;
        base::HostTime time;
    };
    /// The road of one source to the timeline.
    struct Inlet {
        Inlet(AudioConverterFactory& converters, double sampleRate);
        AudioRing<Incoming> incoming;
        std::atomic<std::uint64_t> refusedFrames = 0;
        MonoMixer mixer;
        bool didLogFormat = false;
        std::atomic<int> buffers = 0;  ///< accepted so far
        AudioRing<std::int64_t> placed;
    };

    RecordingFiles names_;
    EncodingSettings settings_;
    bool separateTracks_;
    ProblemHandler onProblem_;
    std::array<Inlet, 2> inlets_;
    std::mutex lock_;  ///< guards clock_; held for moments only
    RecordingClock clock_;
    std::atomic<bool> isBlocked_ = false;
    TemporaryAudio temporary_;
    StereoTimeline timeline_;
    std::shared_ptr<BackgroundEncoder> encoder_;
    std::atomic<bool> toldWriteError_ = false;
    bool toldOverflow_ = false;
    std::stop_source stopSource_;

    Inlet* earliest();
    bool convertNext(Inlet& inlet);
    void logFormat(Inlet& inlet, const AudioBuffer& buffer);
    void reportOverflow();
    void writeChunk(std::int64_t firstFrame, std::span<const float> interleaved);
    void reportWriteError(const std::string& error);
};

}  // namespace tessivox::audio
