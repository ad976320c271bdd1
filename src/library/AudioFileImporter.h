#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/Observable.h"
#include "base/Task.h"
#include "base/TaskQueue.h"
#include "base/TemporaryFile.h"
#include "core/AppSettings.h"
#include "library/AudioImportError.h"
#include "library/RecordingStorage.h"
#include "library/ports/AudioConversion.h"
#include "library/ports/MediaLengths.h"
#include "services/telemetry/Analytics.h"

namespace tessivox::library {

/// Brings existing sound files into the library as recordings. Main thread; the work is done beside it, one file after
/// the other.
class AudioFileImporter {
public:
    using Path = std::filesystem::path;

    /// Lower case, without the dot.
    static constexpr std::array<std::string_view, 5> supportedExtensions{"m4a", "mp3", "wav", "aiff", "caf"};
    /// Whether a file's name has one of these, in any letter case.
    static bool isSupported(const Path& file);

    struct Parts {
        base::Runtime& runtime;
        base::Files& files;
        core::AppSettings& settings;
        telemetry::Analytics& analytics;
        RecordingStorage& storage;
        const MediaLengths& lengths;
        AudioConversion& conversion;
        std::function<std::string()> makeUuid;  ///< upper-case text; any thread
        /// Begins to transcribe an imported file, whose length is in seconds, and returns.
        std::function<void(const Path&, double)> startTranscription;
    };
    explicit AudioFileImporter(Parts parts);
    AudioFileImporter(const AudioFileImporter&) = delete;
    AudioFileImporter& operator=(const AudioFileImporter&) = delete;

    // Of several imports at the same time these show whichever told last, and the first to end clears them.
    base::Observable<bool> isImporting{false};
    base::Observable<std::optional<std::string>> importProgress;  ///< the text of the current step
    base::Observable<std::optional<double>> fractionDone;         ///< of the current step, 0 to 1, where that is known

    /// Gives the new recording's path. Throws AudioImportError; then, and when the task is destroyed, nothing is left
    /// behind. The importer outlives the task. The file itself is never changed.
    base::Task<Path> importAudioFile(Path url);

private:
    struct Imported {
        Path url;
        double duration = 0;  ///< seconds
    };
    class Display;
    using Showing = std::shared_ptr<Display>;

    Parts parts_;
    std::unique_ptr<base::TaskQueue> queue_;

    std::string checkedExtension(const Path& url);
    base::Task<double> loadDuration(Path url);
    base::Task<Imported> convertToM4A(Path url, Showing display);
    base::Task<Imported> copy(Path url, double duration, Showing display);
    std::function<void(double)> tellerOf(const Showing& display);
    std::function<Path()> hiddenPaths() const;
    Path moveToUniqueDestination(base::TemporaryFile& file, const Path& source);
    void reportFailure(const std::string& reason);
};

}  // namespace tessivox::library
