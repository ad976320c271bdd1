#pragma once

#include <filesystem>

#include "audio/AudioLevelMonitor.h"
#include "audio/AudioRecorder.h"
#include "audio/StereoAudioWriter.h"
#include "base/StandardFolders.h"
#include "base/ports/Files.h"
#include "core/AppSettings.h"
#include "core/AppState.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/SwrConverter.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixLocalTime.h"
#include "platform/linux/pulse/PulseAudioDevices.h"
#include "platform/linux/pulse/PulseCaptureBackend.h"
#include "platform/linux/pulse/SoundServerLink.h"

namespace tessivox::app {

/// Makes the recorder with all that it asks of this machine. Nothing is opened before something is recorded. Main
/// thread.
class RecorderKit {
public:
    struct Surroundings {
        posix::EventLoop& loop;
        base::Files& files;
        const base::StandardFolders& folders;
        core::AppSettings& settings;
        core::AppState& state;
        pulse::SoundServerLink& server;
    };
    explicit RecorderKit(const Surroundings& around);
    RecorderKit(const RecorderKit&) = delete;
    RecorderKit& operator=(const RecorderKit&) = delete;

    audio::AudioRecorder& recorder() { return recorder_; }
    audio::StereoAudioWriter& writer() { return writer_; }
    audio::AudioLevelMonitor& levels() { return levels_; }
    audio::AudioDevices& devices() { return devices_; }
    const std::filesystem::path& incompleteFolder() const { return incompleteFolder_; }

private:
    std::filesystem::path incompleteFolder_;
    posix::PosixLocalTime localTime_;
    pulse::PulseAudioDevices devices_;
    pulse::PulseCaptureBackend captures_;
    ffmpeg::SwrConverterFactory converters_;
    ffmpeg::AacEncoderFactory encoders_;
    audio::AudioLevelMonitor levels_;
    audio::StereoAudioWriter writer_;
    audio::AudioRecorder recorder_;
};

}  // namespace tessivox::app
