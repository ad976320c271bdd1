#include "platform/linux/ffmpeg/UploadCopies.h"

#include <stop_token>
#include <utility>

#include "base/Interruption.h"
#include "base/TemporaryFile.h"
#include "base/Text.h"
#include "platform/linux/ffmpeg/Libav.h"
#include "platform/linux/ffmpeg/MediaError.h"
#include "transcription/UploadCopyFiles.h"

namespace tessivox::ffmpeg {
namespace {

using transcription::DownsampleError;
using transcription::UploadCopy;
using transcription::UploadSettings;

class CopyFile final : public UploadCopy {
public:
    CopyFile(base::Files& files, const std::function<base::Files::Path()>& makePath) : file_(files, makePath) {}
    const std::filesystem::path& path() const override { return file_.path(); }

private:
    base::TemporaryFile file_;
};

DownsampleError downsampleError(const MediaError& error) {
    using Code = DownsampleError::Code;
    switch (error.code()) {
        case AVERROR_STREAM_NOT_FOUND:
            return {Code::noAudioTrack, base::localized("No audio track in source file")};
        case AVERROR_DECODER_NOT_FOUND:
            return {Code::cannotAddReaderOutput, base::localized("Could not attach reader output")};
        case AVERROR_ENCODER_NOT_FOUND:
            return {Code::cannotAddWriterInput, base::localized("Could not attach writer input")};
        default:
            return {Code::failed, error.description()};
    }
}

std::unique_ptr<UploadCopy> makeCopy(const UploadCopies::Parts& parts, const std::filesystem::path& source,
                                     const UploadSettings& settings, const std::stop_token& stop) {
    const auto makePath = [&parts] { return parts.temporaryFolder / transcription::uploadCopyName(parts.makeUuid()); };
    const audio::AudioEncoding form{settings.sampleRate, settings.channels, settings.bitRate};
    try {
        auto copy = std::make_unique<CopyFile>(parts.files, makePath);
        parts.conversion.convertToM4A(
            source, copy->path(), form, [](double) {}, stop);
        return copy;
    } catch (const MediaError& error) {
        throw downsampleError(error);
    } catch (const base::Error& error) {
        throw DownsampleError(DownsampleError::Code::failed, error.description());
    }
}

}  // namespace

UploadCopies::UploadCopies(Parts parts)
    : parts_(std::move(parts)),
      queue_(parts_.runtime.makeQueue("com.tessivox.audio-downsample", base::QueuePriority::utility)) {
    queue_->post(
        [&files = parts_.files, folder = parts_.temporaryFolder] { transcription::sweepUploadCopies(files, folder); });
}

base::Task<std::unique_ptr<UploadCopy>> UploadCopies::makeUploadCopy(std::filesystem::path source,
                                                                     UploadSettings settings) {
    const base::Interruption interruption;
    const auto work = [&parts = parts_, source = std::move(source), settings, stop = interruption.token()] {
        return makeCopy(parts, source, settings, stop);
    };
    co_return co_await queue_->run(work);
}

}  // namespace tessivox::ffmpeg
