#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "audio/AudioLevelMonitor.h"
#include "audio/MicrophoneCapture.h"
#include "audio/StereoAudioWriter.h"
#include "audio/SystemAudioCapture.h"
#include "base/ports/LocalTime.h"
#include "core/AppSettings.h"
#include "core/AppState.h"

namespace tessivox::audio {

class AudioRecorderError : public base::Error {
public:
    enum class Case { alreadyRecording, notRecording, fileCreationFailed };
    explicit AudioRecorderError(Case which);
};

/// Records one of the two sources only, whatever the settings say.
enum class SourceOverride { microphoneOnly = 0, systemAudioOnly = 1 };

/// The front of the audio subsystem: what the rest of the program starts and stops. Main thread.
class AudioRecorder final : private MicrophoneCaptureDelegate, private SystemAudioCaptureDelegate {
public:
    /// What it works with; everything outlives it.
    struct Surroundings {
        base::Runtime& runtime;
        base::Files& files;
        base::LocalTime& localTime;
        core::AppSettings& settings;
        core::AppState& state;
        AudioDevices& devices;
        CaptureBackend& backend;
        AudioLevelMonitor& levels;
    };
    AudioRecorder(const Surroundings& surroundings, StereoAudioWriter& writer, std::filesystem::path incompleteFolder);

    base::Observable<bool> isRecording{false};
    base::Observable<bool> isPaused{false};

    /// Starts the writer, then the microphone, then system audio, and returns the file that the recording is to become:
    /// the given one, or one named after the present time in the recordings folder. Throws AudioRecorderError while a
    /// recording runs, starts or is being saved; else what the writer or a source throws, with everything wound down
    /// again.
    base::Task<std::filesystem::path> startRecording(std::optional<SourceOverride> sourceOverride,
                                                     std::optional<std::filesystem::path> output);
    /// Ends and saves the recording; Empty if there is none.
    base::Task<RecordingStopOutcome> stopRecording();
    /// Without a recording in the matching state they do nothing.
    void pauseRecording();
    void resumeRecording();
    /// Brings what is recorded so far to the disk; see StereoAudioWriter.
    base::Task<void> flush() { return writer_.flush(); }

    const std::optional<std::filesystem::path>& outputURL() const { return outputURL_; }

private:
    base::Runtime& runtime_;
    base::Files& files_;
    base::LocalTime& localTime_;
    core::AppSettings& settings_;
    core::AppState& state_;
    AudioDevices& devices_;
    CaptureBackend& backend_;
    AudioLevelMonitor& levels_;
    StereoAudioWriter& writer_;
    std::filesystem::path incompleteFolder_;
    bool isStarting_ = false;
    bool isStopping_ = false;
    std::optional<std::filesystem::path> outputURL_;
    std::unique_ptr<MicrophoneCapture> microphoneCapture_;
    std::unique_ptr<SystemAudioCapture> systemAudioCapture_;
    base::Subscription problems_;

    void microphoneDidCapture(const AudioBuffer& buffer, base::HostTime time) override;
    void microphoneDidMeasure(float level) override { levels_.updateMicrophoneLevel(level); }
    void microphoneDidFail(const base::Error& error) override { report(error.description()); }
    void systemAudioDidCapture(const AudioBuffer& buffer, base::HostTime time) override;
    void systemAudioDidMeasure(float level) override { levels_.updateSystemAudioLevel(level); }
    void systemAudioDidFail(const base::Error& error) override { report(error.description()); }

    std::filesystem::path makeOutputURL() const;
    base::Task<void> startSources(bool wantsMicrophone, bool wantsSystemAudio);
    void stopSources();
    void report(const std::string& problem);
    void setSourcesPaused(bool paused);
};

}  // namespace tessivox::audio
