#pragma once

#include <filesystem>
#include <memory>

#include "base/Error.h"
#include "base/Task.h"

namespace tessivox::transcription {

/// What an upload copy is to be.
struct UploadSettings {
    int sampleRate = 16000;  ///< Hz
    int channels = 1;
    int bitRate = 32000;  ///< bits per second
};

/// Why there is no copy.
class DownsampleError : public base::Error {
public:
    enum class Code { failed, noAudioTrack, cannotAddReaderOutput, cannotAddWriterInput };
    DownsampleError(Code code, std::string description)
        : Error("downsample", static_cast<int>(code), std::move(description)) {}
};

/// A temporary file; destroying it removes the file.
class UploadCopy {
public:
    virtual ~UploadCopy() = default;
    virtual const std::filesystem::path& path() const = 0;
};

/// Makes the small file that is uploaded in place of a recording. Main thread.
class AudioDownsampler {
public:
    virtual ~AudioDownsampler() = default;
    /// An MPEG-4 file in the temporary folder with all of the source's channels folded together. The source stays as
    /// it is. Throws DownsampleError; destroying the task interrupts the work, and nothing is left behind.
    virtual base::Task<std::unique_ptr<UploadCopy>> makeUploadCopy(std::filesystem::path source,
                                                                   UploadSettings settings) = 0;
};

}  // namespace tessivox::transcription
