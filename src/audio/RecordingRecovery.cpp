#include "audio/RecordingRecovery.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <memory>
#include <optional>

#include "audio/CafFile.h"
#include "audio/LeftoverSweep.h"
#include "audio/Mpeg4Duration.h"
#include "audio/OutputNote.h"
#include "audio/TemporaryEncoding.h"
#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::audio {
namespace {

constexpr int kRecoveredBitrate = 128000;
/// An encoded file that differs from its temporary file by no more was saved from it: one AAC packet.
constexpr double kSameLength = 1024;

/// Whether a temporary file never came to hold a frame: shorter than its header, or, after the power failed, of a
/// length but without contents.
bool holdsNothing(base::File& file) {
    if (file.size() < CafWriter::kHeaderSize) return true;
    std::array<std::byte, 65536> bytes{};
    for (std::uint64_t offset = 0;; offset += bytes.size()) {
        const auto count = file.readAt(offset, bytes);
        const auto isZero = [](std::byte byte) { return byte == std::byte{0}; };
        if (!std::ranges::all_of(std::span(bytes).first(count), isZero)) return false;
        if (count < bytes.size()) return true;
    }
}

/// The recovery of one temporary recording.
class Recovery {
public:
    Recovery(const EncodingTools& tools, RecordingFiles names, const RecoveryObserver& observer,
             const std::stop_token& stop)
        : tools_(tools),
          files_(tools.files),
          names_(std::move(names)),
          temporary_(names_.temporary(Track::stereo)),
          elsewhere_(notedOutput(files_, names_)),
          observer_(observer),
          stop_(stop) {}

    /// The file made, if one was. Throws base::Error and leaves everything as it is.
    std::optional<std::filesystem::path> run() {
        // Held until the temporary files are gone, so that no other process recovers them too.
        const auto lock = openIfThere();
        if (!lock || !lock->tryLock(temporary_)) return std::nullopt;
        if (isPlainFile() && holdsNothing(*lock)) return removeTemporaries();
        const CafReader reader(files_.open(temporary_, base::FileAccess::read));
        if (reader.frames() == 0) return removeTemporaries();
        if (isSaved(names_, reader)) return removeSavedTemporaries(names_.outputFolder());
        if (elsewhere_ && isSaved(*elsewhere_, reader)) return removeSavedTemporaries(elsewhere_->outputFolder());
        return finalize(reader.format());
    }

private:
    const EncodingTools& tools_;
    base::Files& files_;
    RecordingFiles names_;
    std::filesystem::path temporary_;
    std::optional<RecordingFiles> elsewhere_;  ///< where it was to be saved, if not in the recordings folder
    const RecoveryObserver& observer_;
    const std::stop_token& stop_;

    /// Null if it is gone: another process finished it meanwhile.
    std::unique_ptr<base::File> openIfThere() {
        try {
            return files_.open(temporary_, base::FileAccess::update);
        } catch (const base::FileError& error) {
            if (error.code() != ENOENT) throw;
            return nullptr;
        }
    }

    bool isPlainFile() const {
        const auto status = files_.status(temporary_);
        return status && status->isRegular;
    }

    /// The stereo file comes last: as long as it is there, the next launch takes the others away too.
    std::nullopt_t removeTemporaries() {
        if (elsewhere_) sweepHidden(files_, *elsewhere_);
        for (const auto track : {Track::microphone, Track::system, Track::stereo}) {
            files_.removeIfPossible(names_.hidden(track));
            files_.removeIfPossible(names_.temporary(track));
        }
        names_.syncTemporaries(files_);
        return std::nullopt;
    }

    /// Once what was saved from them, in the folder, is on the disk.
    std::nullopt_t removeSavedTemporaries(const std::filesystem::path& folder) {
        try {
            files_.syncFolder(folder);
            removeTemporaries();
        } catch (const base::FileError& error) {
            // The next launch finds both files, and that they are the same.
            base::log("[Recovery] " + temporary_.filename().string() + " stays for now: " + error.description());
        }
        return std::nullopt;
    }

    /// Whether the program was ended between giving the file its final name and removing the temporary one.
    bool isSaved(const RecordingFiles& names, const CafReader& reader) {
        const auto isCopy = [&](const std::string& name) {
            const auto saved = names.outputFolder() / name;
            return names.mayBeSavedAs(name) && isYoungEnough(saved) && lastsAsLong(saved, reader);
        };
        return std::ranges::any_of(sortedNames(files_, names.outputFolder()), isCopy);
    }

    /// What was last written before the temporary file was made was not saved from it.
    bool isYoungEnough(const std::filesystem::path& saved) const {
        const auto copy = files_.status(saved), source = files_.status(temporary_);
        return copy && source && copy->modified >= source->birth;
    }

    bool lastsAsLong(const std::filesystem::path& saved, const CafReader& reader) {
        try {
            const auto duration = readMpeg4Duration(*files_.open(saved, base::FileAccess::read));
            if (!duration) return false;
            const auto seconds = static_cast<double>(duration->duration) / duration->timescale;
            const auto frames = seconds * reader.format().sampleRate;
            return std::abs(frames - static_cast<double>(reader.frames())) <= kSameLength;
        } catch (const base::FileError&) {
            return false;
        }
    }

    std::filesystem::path finalize(const AudioFormat& format) {
        makeFolderIfPossible();
        const EncodingSettings settings{format.sampleRate, kRecoveredBitrate};
        const auto progress = [this](double share) {
            if (observer_.progressed) observer_.progressed(names_.baseName(), share);
        };
        const auto encoder = encodeFromTemporary(tools_, names_, Track::stereo, settings, progress, stop_);
        if (!encoder) throw base::Error("StereoAudioWriter", -2, base::localized("Empty capture"));
        auto target = publish(*encoder);
        removeSavedTemporaries(names_.outputFolder());
        return target;
    }

    void makeFolderIfPossible() {
        try {
            files_.makeFolders(names_.outputFolder());
        } catch (const base::FileError&) {
            // Making the file fails next, and says why.
        }
    }

    /// Under the first name that nobody takes meanwhile.
    std::filesystem::path publish(TrackEncoder& encoder) {
        auto target = names_.final(Track::stereo);
        for (int number = 1;; ++number) {
            try {
                encoder.publish(target);
                return target;
            } catch (const base::FileError& error) {
                if (error.code() != EEXIST) throw;
                target = names_.recovered(number);
            }
        }
    }
};

}  // namespace

std::vector<std::filesystem::path> recoverIncompleteFiles(const EncodingTools& tools,
                                                          const std::filesystem::path& incompleteFolder,
                                                          const std::filesystem::path& recordingsFolder,
                                                          const std::stop_token& stop,
                                                          const RecoveryObserver& observer) {
    std::vector<std::filesystem::path> recovered;
    for (const auto& name : sortedNames(tools.files, incompleteFolder)) {
        if (stop.stop_requested()) return recovered;
        const auto base = RecordingFiles::baseOfTemporary(name);
        if (!base) continue;
        try {
            const RecordingFiles names(incompleteFolder, recordingsFolder / (*base + ".m4a"));
            if (auto url = Recovery(tools, names, observer, stop).run()) recovered.push_back(std::move(*url));
        } catch (const base::Error& error) {
            if (stop.stop_requested()) return recovered;
            base::log("[Recovery] Failed to finalize " + name + ": " + error.description());
            if (observer.failed) observer.failed(*base, error);
        }
    }
    sweepLeftovers(tools.files, incompleteFolder, recordingsFolder);
    return recovered;
}

}  // namespace tessivox::audio
