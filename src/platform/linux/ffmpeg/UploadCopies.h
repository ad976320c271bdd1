#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "base/TaskQueue.h"
#include "base/ports/Files.h"
#include "library/ports/AudioConversion.h"
#include "transcription/ports/AudioDownsampler.h"

namespace tessivox::ffmpeg {

/// Makes upload copies, one after the other, beside the main thread; a task that is destroyed interrupts its own.
class UploadCopies final : public transcription::AudioDownsampler {
public:
    struct Parts {
        base::Runtime& runtime;
        base::Files& files;
        library::AudioConversion& conversion;
        std::filesystem::path temporaryFolder;
        std::function<std::string()> makeUuid;  ///< upper-case text; any thread
    };
    /// Begins by removing the copies that killed programs have left. Main thread.
    explicit UploadCopies(Parts parts);
    UploadCopies(const UploadCopies&) = delete;
    UploadCopies& operator=(const UploadCopies&) = delete;

    base::Task<std::unique_ptr<transcription::UploadCopy>> makeUploadCopy(
        std::filesystem::path source, transcription::UploadSettings settings) override;

private:
    Parts parts_;
    std::unique_ptr<base::TaskQueue> queue_;
};

}  // namespace tessivox::ffmpeg
