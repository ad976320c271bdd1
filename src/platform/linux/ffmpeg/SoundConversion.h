#pragma once

#include <cstdint>
#include <memory>

#include "audio/AudioEncoder.h"
#include "base/TaskQueue.h"
#include "library/ports/AudioConversion.h"
#include "platform/linux/ffmpeg/AacEncoder.h"
#include "platform/linux/ffmpeg/SoundReader.h"

namespace tessivox::ffmpeg {

/// Encodes sound files anew, long ones on two threads: the caller's and one of its own. Errors are also MediaError with
/// the codes of SoundReader, AVERROR_ENCODER_NOT_FOUND, and base::FileError.
class SoundConversion final : public library::AudioConversion {
public:
    /// Main thread. Both outlive it.
    SoundConversion(base::Runtime& runtime, base::Files& files);
    SoundConversion(const SoundConversion&) = delete;
    SoundConversion& operator=(const SoundConversion&) = delete;

    double convertToM4A(const std::filesystem::path& source, const std::filesystem::path& target,
                        const audio::AudioEncoding& form, const std::function<void(double)>& progress,
                        const std::stop_token& stop) override;

private:
    base::Files& files_;
    AacEncoderFactory encoders_;
    std::unique_ptr<base::TaskQueue> helper_;

    struct Job;
    std::unique_ptr<audio::AudioEncoder> beginTarget(const Job& job);
    double encode(Job& job, SoundReader& reader);
    double encodeInSegments(Job& job, std::unique_ptr<SoundReader> reader);
};

}  // namespace tessivox::ffmpeg
