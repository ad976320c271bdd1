#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "CountingEncoders.h"
#include "SpeechTape.h"
#include "audio/StereoAudioWriter.h"
#include "platform/linux/ffmpeg/SwrConverter.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/PosixFiles.h"

namespace tessivox::bench {

/// A recording of two sources into a folder, with everything real but the sources. What the writer complains of, or
/// leaves out, is thrown as std::runtime_error. Main thread, except for the feeding.
class TrialRecording {
public:
    /// Without `encoders` the sound only goes to the temporary file.
    TrialRecording(posix::EventLoop& loop, const std::filesystem::path& folder, audio::AudioEncoderFactory* encoders);

    audio::StereoAudioWriter& writer() { return writer_; }
    /// The host time of a frame, for those who append by themselves.
    base::HostTime timeOf(std::uint64_t frame) const;

    /// Feeds both sources in the order of time, as fast as the encoder takes it, up to that moment of the recording;
    /// `onMinute` is called after each minute fed. Returns when every whole second has been encoded. A thread beside
    /// the loop.
    void feedUpTo(const SpeechTape& tape, double second, const std::function<void(double second)>& onMinute);

    /// Brings to the disk what a kernel would long have written if the recording had taken its time.
    void settleFiles() const;
    std::filesystem::path temporary() const { return names_.temporary(audio::Track::stereo); }

    /// Saves, and returns the seconds that whoever asked had to wait.
    double stop();

private:
    posix::EventLoop& loop_;
    posix::PosixFiles files_;
    ffmpeg::SwrConverterFactory converters_;
    CountingEncoders encoders_;
    audio::RecordingFiles names_;
    audio::StereoAudioWriter writer_;
    base::Subscription problems_;
    std::string problem_;
    base::HostTime beginning_;
    std::uint64_t microphoneBuffers_ = 0;
    std::uint64_t systemBuffers_ = 0;

    bool feedOne(const SpeechTape& tape, std::uint64_t endFrame);
    std::uint64_t framesFed() const;
    void awaitEncoder(std::uint64_t frames) const;
};

}  // namespace tessivox::bench
