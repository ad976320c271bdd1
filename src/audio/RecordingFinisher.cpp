#include "audio/RecordingFinisher.h"

#include <cerrno>

#include "base/Log.h"

namespace tessivox::audio {
namespace {

std::unique_ptr<TrackEncoder>& slotOf(BackgroundEncoder::FinishedTracks& tracks, Track track) {
    return tracks[static_cast<std::size_t>(track)];
}

}  // namespace

RecordingStopOutcome RecordingFinisher::run(BackgroundEncoder::FinishedTracks tracks, const EncodingProgress& progress,
                                            const std::stop_token& stop) {
    base::log("Total frames written: " + std::to_string(recording_.frames));
    try {
        auto saved = save(std::move(tracks), progress, stop);
        base::log("Done - " + saved.url.filename().string());
        return saved;
    } catch (const base::Error& error) {
        base::log("Conversion error: " + error.description());
    }
    // Interrupted on purpose: the temporary files stay where they are and are finished at the next start.
    if (stop.stop_requested()) return ConversionFailed{};
    return rescue();
}

Saved RecordingFinisher::save(BackgroundEncoder::FinishedTracks tracks, const EncodingProgress& progress,
                              const std::stop_token& stop) {
    const auto ensure = [&](Track track) {
        auto& slot = slotOf(tracks, track);
        if (!slot) slot = encodeFromTemporary(tools_, recording_.names, track, recording_.settings, progress, stop);
    };
    const bool isWhole = slotOf(tracks, Track::stereo) != nullptr;
    ensure(Track::stereo);
    if (!slotOf(tracks, Track::stereo)) {
        throw base::Error("StereoAudioWriter", -2, "The temporary recording holds no audio.");
    }
    if (recording_.separateTracks) {
        try {
            ensure(Track::microphone);
            ensure(Track::system);
        } catch (const base::Error&) {
            // The recording itself is there and stays, whatever became of its extra tracks.
            slotOf(tracks, Track::microphone).reset();
            slotOf(tracks, Track::system).reset();
            publish(tracks);
            throw;
        }
    }
    const auto url = publish(tracks);
    discardTemporaries();
    const auto missing = isWhole ? 0 : recording_.lostFrames;
    return {url, static_cast<double>(missing) / recording_.settings.sampleRate};
}

std::filesystem::path RecordingFinisher::publish(BackgroundEncoder::FinishedTracks& tracks) {
    // The stereo file comes last: once it stands, the temporary files count as superfluous.
    auto names = recording_.names;
    while (true) {
        try {
            for (const auto track : {Track::microphone, Track::system, Track::stereo}) {
                auto& slot = slotOf(tracks, track);
                if (!slot) continue;
                slot->publish(names.final(track));
                slot.reset();
            }
            break;
        } catch (const base::FileError& error) {
            if (error.code() != EEXIST) throw;
            names = recording_.names.firstFree(files_);
        }
    }
    files_.syncFolder(names.outputFolder());
    return names.final(Track::stereo);
}

void RecordingFinisher::discardTemporaries() {
    for (const auto track : kTracks) {
        const auto discarded = recording_.names.discarded(track);
        try {
            files_.replace(recording_.names.temporary(track), discarded);
            discarded_.push_back(discarded);
        } catch (const base::FileError&) {
            // Most recordings have no separate tracks; a stereo file that stays is recognised as saved at the next
            // start.
        }
    }
    recording_.names.syncTemporaries(files_);
}

ConversionFailed RecordingFinisher::rescue() {
    const auto& names = recording_.names;
    ConversionFailed outcome;
    syncRawAudio();
    try {
        outcome.rescuedPCM = moveBesideOutput();
        files_.syncFolder(names.outputFolder());
        names.syncTemporaries(files_);
        base::log("Rescued raw PCM to " + outcome.rescuedPCM->filename().string() + " after conversion failure");
    } catch (const base::FileError& error) {
        base::log("Failed to rescue raw PCM: " + error.description());
    }
    files_.removeIfPossible(names.temporary(Track::microphone));
    files_.removeIfPossible(names.temporary(Track::system));
    return outcome;
}

std::filesystem::path RecordingFinisher::moveBesideOutput() {
    for (int number = 1;; ++number) {
        const auto target = recording_.names.rescued(number);
        try {
            files_.move(recording_.names.temporary(Track::stereo), target);
            return target;
        } catch (const base::FileError& error) {
            if (error.code() != EEXIST) throw;
        }
    }
}

void RecordingFinisher::syncRawAudio() {
    try {
        files_.open(recording_.names.temporary(Track::stereo), base::FileAccess::update)->sync();
    } catch (const base::FileError& error) {
        base::log("The end of the raw audio may not be on the disk yet: " + error.description());
    }
}

}  // namespace tessivox::audio
