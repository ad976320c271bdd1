#include "library/AudioFileImporter.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <span>
#include <stop_token>
#include <utility>
#include <vector>

#include "audio/LeftoverSweep.h"
#include "audio/RecordingFiles.h"
#include "base/Interruption.h"
#include "base/Log.h"
#include "base/ShortenedText.h"
#include "base/Text.h"
#include "library/RecordingName.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;
using telemetry::AnalyticsEvent;

/// As recordings are made at the middle quality: at this rate AAC takes nothing away from speech that one could hear,
/// and next to nothing from music. A source with one channel keeps it, with half of the bits.
constexpr audio::AudioEncoding kForm{48000, 2, 128000};
constexpr std::size_t kCopyBlock = 1 << 20;
/// Often enough for a display, seldom enough for the main loop.
constexpr double kProgressStep = 0.005;

std::string lowerExtension(const Path& file) {
    auto extension = file.extension().native();
    if (!extension.empty()) extension.erase(0, 1);
    for (auto& letter : extension) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    return extension;
}

bool isSupportedExtension(std::string_view extension) {
    return std::ranges::find(AudioFileImporter::supportedExtensions, extension) !=
           AudioFileImporter::supportedExtensions.end();
}

/// The source's own name, unless the library would not show it: a leading dot hides a file.
std::string stemOf(const Path& source) {
    auto stem = source.stem().native();
    stem.erase(0, std::min(stem.find_first_not_of('.'), stem.size()));
    return base::trimmed(stem).empty() ? "imported" : stem;
}

/// The name that comes after `number` others that are taken.
std::string destinationBase(const std::string& stem, int number) {
    const auto suffix = number == 0 ? std::string() : "_" + std::to_string(number);
    return std::string(base::shortened(stem, audio::RecordingFiles::kLongestBase - suffix.size())) + suffix;
}

/// The library would take it for a part of another recording.
bool isTrackName(std::string_view base) { return base.ends_with(kMicrophoneSuffix) || base.ends_with(kSystemSuffix); }

/// `to` is empty.
void copyContents(base::File& from, base::File& to, const std::function<void(double)>& tell,
                  const std::stop_token& stop) {
    const auto size = from.size();
    std::vector<std::byte> block(kCopyBlock);
    std::uint64_t offset = 0;
    while (const auto count = from.readAt(offset, block)) {
        if (stop.stop_requested()) throw base::FileError(ECANCELED, base::localized("The copying was interrupted."));
        to.writeAt(offset, std::span(block).first(count));
        offset += count;
        tell(static_cast<double>(offset) / static_cast<double>(std::max(size, offset)));
    }
}

void syncIfPossible(base::Files& files, const Path& folder) {
    try {
        files.syncFolder(folder);
    } catch (const base::FileError& error) {
        base::log("[Import] " + error.description());
    }
}

}  // namespace

/// What an import shows while it runs; with it that ends.
class AudioFileImporter::Display {
public:
    explicit Display(AudioFileImporter& importer) : importer_(importer) {
        importer_.isImporting.set(true);
        show("Validating...");
    }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;
    ~Display() {
        importer_.isImporting.set(false);
        importer_.importProgress.set(std::nullopt);
        importer_.fractionDone.set(std::nullopt);
    }

    void show(std::string_view step) {
        importer_.importProgress.set(base::localized(step));
        importer_.fractionDone.set(std::nullopt);
    }
    void tell(double fraction) { importer_.fractionDone.set(fraction); }

private:
    AudioFileImporter& importer_;
};

AudioFileImporter::AudioFileImporter(Parts parts)
    : parts_(std::move(parts)),
      queue_(parts_.runtime.makeQueue("com.tessivox.library.import", base::QueuePriority::userInitiated)) {}

bool AudioFileImporter::isSupported(const Path& file) { return isSupportedExtension(lowerExtension(file)); }

base::Task<Path> AudioFileImporter::importAudioFile(Path url) {
    const auto display = std::make_shared<Display>(*this);
    const auto extension = checkedExtension(url);
    const double duration = co_await loadDuration(url);
    parts_.settings.ensureRecordingsFolder();
    const bool isConverted = extension != "m4a";
    const auto making = isConverted ? convertToM4A(url, display) : copy(url, duration, display);
    const auto imported = co_await making;
    parts_.storage.addRecording(imported.url, imported.duration);
    parts_.analytics.track(AnalyticsEvent::audioFileImported,
                           {{"original_format", extension}, {"converted", isConverted ? "true" : "false"}});
    if (parts_.settings.autoTranscribe.get()) parts_.startTranscription(imported.url, imported.duration);
    co_return imported.url;
}

std::string AudioFileImporter::checkedExtension(const Path& url) {
    auto extension = lowerExtension(url);
    if (isSupportedExtension(extension)) return extension;
    parts_.analytics.track(AnalyticsEvent::audioFileImportFailed,
                           {{"reason", "unsupported_format"}, {"format", extension}});
    throw AudioImportError(AudioImportError::UnsupportedFormat{extension});
}

base::Task<double> AudioFileImporter::loadDuration(Path url) {
    const auto work = [&files = parts_.files, &lengths = parts_.lengths, url = std::move(url)] {
        const auto status = files.status(url);
        return status && status->isRegular ? lengths.seconds(url) : std::nullopt;
    };
    const std::optional<double> seconds = co_await queue_->run(work);
    if (!seconds || !std::isfinite(*seconds) || *seconds <= 0)
        throw AudioImportError(AudioImportError::DurationReadFailed{});
    co_return *seconds;
}

/// The length is that of what was written: some formats only let one guess it before.
base::Task<AudioFileImporter::Imported> AudioFileImporter::convertToM4A(Path url, Showing display) {
    display->show("Converting to M4A...");
    const base::Interruption interruption;
    const auto work = [&files = parts_.files, &conversion = parts_.conversion, paths = hiddenPaths(), url,
                       tell = tellerOf(display), stop = interruption.token()] {
        auto file = std::make_unique<base::TemporaryFile>(files, paths);
        const double seconds = conversion.convertToM4A(url, file->path(), kForm, tell, stop);
        return std::pair(std::move(file), seconds);
    };
    try {
        const auto made = co_await queue_->run(work);
        const auto destination = moveToUniqueDestination(*made.first, url);
        co_return Imported{destination, made.second};
    } catch (const base::Error& error) {
        reportFailure("conversion_failed");
        throw AudioImportError(AudioImportError::ConversionFailed{error.description()});
    }
}

base::Task<AudioFileImporter::Imported> AudioFileImporter::copy(Path url, double duration, Showing display) {
    display->show("Copying file...");
    const base::Interruption interruption;
    const auto work = [&files = parts_.files, paths = hiddenPaths(), url, tell = tellerOf(display),
                       stop = interruption.token()] {
        const auto source = files.open(url, base::FileAccess::read);
        auto file = std::make_unique<base::TemporaryFile>(files, paths);
        if (!file->file().cloneFrom(*source)) copyContents(*source, file->file(), tell, stop);
        file->file().sync();
        return file;
    };
    try {
        const auto file = co_await queue_->run(work);
        const auto destination = moveToUniqueDestination(*file, url);
        co_return Imported{destination, duration};
    } catch (const base::Error& error) {
        reportFailure("copy_failed");
        throw AudioImportError(AudioImportError::FileCopyFailed{error.description()});
    }
}

void AudioFileImporter::reportFailure(const std::string& reason) {
    parts_.analytics.track(AnalyticsEvent::audioFileImportFailed, {{"reason", reason}});
}

/// Brings what is told on the queue to the main thread, as long as the import is shown there.
std::function<void(double)> AudioFileImporter::tellerOf(const Showing& display) {
    return [&scheduler = parts_.runtime.scheduler(), showing = std::weak_ptr(display),
            told = -kProgressStep](double fraction) mutable {
        if (fraction < told + kProgressStep && fraction < 1) return;
        told = fraction;
        scheduler.post([showing, fraction] {
            if (const auto shown = showing.lock()) shown->tell(fraction);
        });
    };
}

/// Beside the destination, where moving the file is one step. What a kill leaves there is found by its name.
std::function<Path()> AudioFileImporter::hiddenPaths() const {
    return [folder = Path(parts_.settings.recordingsDirectoryPath.get()), makeUuid = parts_.makeUuid] {
        return folder / audio::importName(makeUuid());
    };
}

Path AudioFileImporter::moveToUniqueDestination(base::TemporaryFile& file, const Path& source) {
    const auto folder = file.path().parent_path();
    const auto stem = stemOf(source);
    for (int number = 0;; ++number) {
        const auto base = destinationBase(stem, number);
        auto destination = folder / (base + std::string(kAudioExtension));
        if (isTrackName(base) || parts_.files.exists(destination)) continue;
        try {
            file.moveTo(destination);
        } catch (const base::FileError& error) {
            if (error.code() != EEXIST) throw;
            continue;
        }
        syncIfPossible(parts_.files, folder);
        return destination;
    }
}

}  // namespace tessivox::library
