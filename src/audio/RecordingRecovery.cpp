#include "audio/RecordingRecovery.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "audio/CafFile.h"
#include "audio/Mpeg4Duration.h"
#include "audio/TemporaryEncoding.h"
#include "base/Log.h"

namespace tessivox::audio {
namespace {

constexpr int kRecoveredBitrate = 128000;
/// An encoded file that differs from its temporary file by less was saved from it: one AAC packet.
constexpr double kSameLength = 1024;

/// The recovery of one temporary recording.
class Recovery {
public:
    Recovery(const EncodingTools& tools, RecordingFiles names, const std::stop_token& stop)
        : tools_(tools),
          files_(tools.files),
          names_(std::move(names)),
          temporary_(names_.temporary(Track::stereo)),
          stop_(stop) {}

    /// The file made, if one was. Throws base::Error and leaves everything as it is.
    std::optional<std::filesystem::path> run() {
        const auto lock = files_.open(temporary_, base::FileAccess::update);
        if (!lock->tryLock(temporary_)) return std::nullopt;
        if (lock->size() < CafWriter::kHeaderSize) return removeTemporaries();
        const CafReader reader(files_.open(temporary_, base::FileAccess::read));
        if (reader.frames() == 0 || isSaved(reader)) return removeTemporaries();
        return finalize(reader.format());
    }

private:
    const EncodingTools& tools_;
    base::Files& files_;
    RecordingFiles names_;
    std::filesystem::path temporary_;
    const std::stop_token& stop_;

    std::nullopt_t removeTemporaries() {
        for (const auto track : kTracks) {
            files_.removeIfPossible(names_.temporary(track));
            files_.removeIfPossible(names_.hidden(track));
        }
        return std::nullopt;
    }

    /// Whether the program was ended between giving the file its final name and removing the temporary one.
    bool isSaved(const CafReader& reader) {
        const auto saved = names_.final(Track::stereo);
        if (!files_.exists(saved)) return false;
        const auto duration = readMpeg4Duration(*files_.open(saved, base::FileAccess::read));
        if (!duration) return false;
        const auto frames = static_cast<double>(duration->duration) / duration->timescale * reader.format().sampleRate;
        return std::abs(frames - static_cast<double>(reader.frames())) <= kSameLength;
    }

    std::filesystem::path finalize(const AudioFormat& format) {
        const EncodingSettings settings{format.sampleRate, kRecoveredBitrate};
        const auto encoder = encodeFromTemporary(
            tools_, names_, Track::stereo, settings, [](double) {}, stop_);
        const auto target = freeTarget();
        encoder->publish(target);
        files_.syncFolder(names_.outputFolder());
        removeTemporaries();
        return target;
    }

    std::filesystem::path freeTarget() const {
        auto target = names_.final(Track::stereo);
        for (int number = 1; files_.exists(target); ++number) {
            target = names_.outputFolder() / (names_.baseName() + "_recovered_" + std::to_string(number) + ".m4a");
        }
        return target;
    }
};

std::vector<std::string> namesIn(base::Files& files, const std::filesystem::path& folder) {
    std::vector<std::string> names;
    try {
        for (const auto& name : files.list(folder)) names.push_back(name.string());
    } catch (const base::FileError&) {
        // No folder, nothing to recover.
    }
    std::ranges::sort(names);
    return names;
}

}  // namespace

std::vector<std::filesystem::path> recoverIncompleteFiles(const EncodingTools& tools,
                                                          const std::filesystem::path& incompleteFolder,
                                                          const std::filesystem::path& recordingsFolder,
                                                          const std::stop_token& stop) {
    auto& files = tools.files;
    std::vector<std::filesystem::path> recovered;
    for (const auto& name : namesIn(files, incompleteFolder)) {
        if (stop.stop_requested()) break;
        if (RecordingFiles::isDiscarded(name)) files.removeIfPossible(incompleteFolder / name);
        const auto base = RecordingFiles::baseOfTemporary(name);
        if (!base) continue;
        try {
            files.makeFolders(recordingsFolder);
            const RecordingFiles names(incompleteFolder, recordingsFolder / (*base + ".m4a"));
            if (auto url = Recovery(tools, names, stop).run()) recovered.push_back(std::move(*url));
        } catch (const base::Error& error) {
            base::log("[Recovery] Failed to finalize " + name + ": " + error.description());
        }
    }
    return recovered;
}

}  // namespace tessivox::audio
