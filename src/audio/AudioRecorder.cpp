#include "audio/AudioRecorder.h"

#include <cstdlib>

#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::audio {
namespace {

constexpr double kSampleRate = 48000.0;

std::string_view text(AudioRecorderError::Case which) {
    switch (which) {
        case AudioRecorderError::Case::alreadyRecording:
            return "Recording is already in progress";
        case AudioRecorderError::Case::notRecording:
            return "No recording in progress";
        case AudioRecorderError::Case::fileCreationFailed:
            return "Failed to create audio file";
    }
    std::abort();
}

/// "2026-03-01_09-05-00"
std::string nameOf(const base::CivilTime& time) {
    using base::paddedNumber;
    return paddedNumber(time.year, 4) + "-" + paddedNumber(time.month, 2) + "-" + paddedNumber(time.day, 2) + "_" +
           paddedNumber(time.hour, 2) + "-" + paddedNumber(time.minute, 2) + "-" + paddedNumber(time.second, 2);
}

/// Sets a flag for as long as a start or a stop is under way, however it ends.
class InProgress {
public:
    explicit InProgress(bool& flag) : flag_(flag) { flag_ = true; }
    InProgress(const InProgress&) = delete;
    InProgress& operator=(const InProgress&) = delete;
    ~InProgress() { flag_ = false; }

private:
    bool& flag_;
};

}  // namespace

AudioRecorderError::AudioRecorderError(Case which)
    : Error("AudioRecorder", static_cast<int>(which), base::localized(text(which))) {}

AudioRecorder::AudioRecorder(const Surroundings& surroundings, StereoAudioWriter& writer,
                             std::filesystem::path incompleteFolder)
    : runtime_(surroundings.runtime),
      files_(surroundings.files),
      localTime_(surroundings.localTime),
      settings_(surroundings.settings),
      state_(surroundings.state),
      devices_(surroundings.devices),
      backend_(surroundings.backend),
      levels_(surroundings.levels),
      writer_(writer),
      incompleteFolder_(std::move(incompleteFolder)),
      problems_(writer.onProblem.observe([this](const std::string& problem) { report(problem); })) {}

base::Task<std::filesystem::path> AudioRecorder::startRecording(std::optional<SourceOverride> sourceOverride,
                                                                std::optional<std::filesystem::path> output) {
    base::log("DEBUG: startRecording called");
    if (isRecording.get() || isStarting_) {
        base::log("DEBUG: Already recording");
        throw AudioRecorderError(AudioRecorderError::Case::alreadyRecording);
    }
    const InProgress guard(isStarting_);
    const bool wantsMicrophone =
        sourceOverride ? *sourceOverride == SourceOverride::microphoneOnly : settings_.recordMicrophone.get();
    const bool wantsSystemAudio =
        sourceOverride ? *sourceOverride == SourceOverride::systemAudioOnly : settings_.recordSystemAudio.get();
    outputURL_ = output ? *output : makeOutputURL();
    base::log("DEBUG: Output URL: " + outputURL_->string());
    writer_.start(*outputURL_, kSampleRate, settings_.saveSeparateTracks.get(), bitrate(settings_.audioQuality.get()));

    std::exception_ptr failure;
    try {
        co_await startSources(wantsMicrophone, wantsSystemAudio);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        stopSources();
        co_await writer_.abandon();
        std::rethrow_exception(failure);
    }
    isRecording.set(true);
    base::log("DEBUG: Recording started successfully");
    co_return *outputURL_;
}

base::Task<void> AudioRecorder::startSources(bool wantsMicrophone, bool wantsSystemAudio) {
    if (wantsMicrophone) {
        base::log("DEBUG: Starting microphone capture...");
        MicrophoneCaptureDelegate& delegate = *this;
        microphoneCapture_ = std::make_unique<MicrophoneCapture>(runtime_.scheduler(), devices_, backend_, delegate);
        const auto selected = settings_.selectedMicrophoneID.get();
        const auto uid = selected.empty() ? std::nullopt : std::optional(selected);
        co_await microphoneCapture_->start(uid);
        base::log("DEBUG: Microphone capture started");
    }
    if (wantsSystemAudio) {
        base::log("DEBUG: Starting system audio capture...");
        SystemAudioCaptureDelegate& delegate = *this;
        systemAudioCapture_ = std::make_unique<SystemAudioCapture>(runtime_.scheduler(), devices_, backend_, delegate);
        co_await systemAudioCapture_->start();
        base::log("DEBUG: System audio capture started");
    }
}

base::Task<RecordingStopOutcome> AudioRecorder::stopRecording() {
    if (!isRecording.get() || isStopping_) co_return Empty{};
    const InProgress guard(isStopping_);
    stopSources();
    auto outcome = co_await writer_.stop();
    isRecording.set(false);
    isPaused.set(false);
    co_return outcome;
}

void AudioRecorder::pauseRecording() {
    if (!isRecording.get() || isPaused.get()) return;
    isPaused.set(true);
    writer_.pause();
    setSourcesPaused(true);
}

void AudioRecorder::resumeRecording() {
    if (!isRecording.get() || !isPaused.get()) return;
    isPaused.set(false);
    writer_.resume();
    setSourcesPaused(false);
}

void AudioRecorder::setSourcesPaused(bool paused) {
    if (microphoneCapture_) microphoneCapture_->setPaused(paused);
    if (systemAudioCapture_) systemAudioCapture_->setPaused(paused);
}

void AudioRecorder::stopSources() {
    microphoneCapture_.reset();
    systemAudioCapture_.reset();
}

void AudioRecorder::microphoneDidCapture(const AudioBuffer& buffer, base::HostTime time) {
    writer_.appendMicrophone(buffer, time);
}

void AudioRecorder::systemAudioDidCapture(const AudioBuffer& buffer, base::HostTime time) {
    writer_.appendSystem(buffer, time);
}

void AudioRecorder::report(const std::string& problem) {
    state_.lastError.set(core::AppError(core::AppError::RecordingFailed{problem}));
}

std::filesystem::path AudioRecorder::makeOutputURL() const {
    settings_.ensureRecordingsFolder();
    const std::filesystem::path folder = settings_.recordingsDirectoryPath.get();
    // A name that is taken, by a recording or by what a crash left of one, gives way to the next second's.
    for (auto time = runtime_.scheduler().wallNow();; time += std::chrono::seconds(1)) {
        const auto url = folder / (nameOf(localTime_.civil(time)) + ".m4a");
        if (!RecordingFiles(incompleteFolder_, url).isTaken(files_)) return url;
    }
}

}  // namespace tessivox::audio
