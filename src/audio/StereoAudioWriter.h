#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "audio/RecordingSession.h"
#include "base/Observable.h"
#include "base/TaskQueue.h"
#include "base/Timer.h"

namespace tessivox::audio {

/// Turns two live sources into one stereo recording, the microphone left and system audio right, placed on one timeline
/// by their host times. While recording, the audio goes to a temporary CAF second by second, which survives a crash,
/// and to an encoder; stop() gives the encoded file its final name. One instance serves all recordings, one after the
/// other.
///
/// Main thread, except for the two append operations.
class StereoAudioWriter {
public:
    StereoAudioWriter(base::Runtime& runtime, base::Files& files, AudioConverterFactory& converters,
                      AudioEncoderFactory& encoders, std::filesystem::path incompleteFolder);
    /// An encoding under way is given up; its recording is finished at the next launch.
    ~StereoAudioWriter();

    /// Begins a recording that is to become `outputURL`, an .m4a whose names are free. Throws base::FileError if a
    /// temporary file cannot be made. `audioBitrate` in bits per second. Refused by the caller while one runs.
    void start(const std::filesystem::path& outputURL, double sampleRate, bool saveSeparateTracks, int audioBitrate);

    /// Take a buffer and the host time of its first frame. Each on its source's capture thread, only between start()
    /// and stop(): no lock, no allocation, no file. Ten seconds are held if the writing falls behind; more is left out
    /// and told.
    void appendMicrophone(const AudioBuffer& buffer, base::HostTime time) noexcept;
    void appendSystem(const AudioBuffer& buffer, base::HostTime time) noexcept;

    /// What was captured between the two is left out, on both channels, and what surrounds it joins.
    void pause();
    void resume();

    /// Brings what has come in to the disk, but for the second (while a source is stalled, up to ten) that the two
    /// channels still wait for each other. The recording goes on.
    base::Task<void> flush();

    /// Ends the recording, whose sources have stopped, and saves it.
    base::Task<RecordingStopOutcome> stop();

    /// Ends the recording and removes it, whose sources never came up.
    base::Task<void> abandon();

    /// The first failed write of a recording and the like: a sentence. The recording goes on.
    base::Signal<const std::string&> onProblem;
    /// Share done of an encoding that a stop has to do itself, from 0 to 1; 0 while there is none.
    base::Observable<double> encodingProgress;

private:
    base::Runtime& runtime_;
    base::Files& files_;
    AudioConverterFactory& converters_;
    AudioEncoderFactory& encoders_;
    std::filesystem::path incompleteFolder_;

    std::shared_ptr<RecordingSession> session_;     ///< main thread, and the capture threads while sources run
    std::shared_ptr<RecordingSession> converting_;  ///< convert queue
    std::shared_ptr<RecordingSession> writing_;     ///< write queue
    std::atomic<bool> isSyncing_ = false;
    std::array<base::HostTime, 2> wakeDue_{};  ///< from when on a source's sound wakes; its capture thread
    base::Timer gathering_;
    std::shared_ptr<StereoAudioWriter*> self_ = std::make_shared<StereoAudioWriter*>(this);  ///< for posted reports

    // Destroyed first, in reverse: each queue finishes its work before what it works on goes.
    std::unique_ptr<base::TaskQueue> syncQueue_;
    std::unique_ptr<base::TaskQueue> encodeQueue_;
    std::unique_ptr<base::TaskQueue> writeQueue_;
    std::unique_ptr<base::TaskQueue> enqueueQueue_;
    std::unique_ptr<base::WakeSource> writeWake_;
    std::unique_ptr<base::WakeSource> enqueueWake_;

    void append(Source source, const AudioBuffer& buffer, base::HostTime time) noexcept;
    bool isWakeDue(Source source, const AudioBuffer& buffer, base::HostTime time) noexcept;
    void convertArrived();
    void writeConverted();
    void requestSync(const std::shared_ptr<RecordingSession>& session);
    base::Task<std::int64_t> closeSession();
    RecordingStopOutcome finish(RecordingSession& session);
    static RecordingStopOutcome discard(RecordingSession& session);
};

}  // namespace tessivox::audio
