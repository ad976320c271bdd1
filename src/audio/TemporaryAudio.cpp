#include "audio/TemporaryAudio.h"

#include <cerrno>

#include "audio/OutputNote.h"
#include "base/Text.h"

namespace tessivox::audio {
namespace {

constexpr int kAttempts = 3;

}  // namespace

void extractChannel(std::span<const float> interleaved, std::size_t side, std::vector<float>& channel) {
    channel.resize(interleaved.size() / 2);
    for (std::size_t frame = 0; frame < channel.size(); ++frame) channel[frame] = interleaved[2 * frame + side];
}

TemporaryAudio::TemporaryAudio(base::Files& files, const RecordingFiles& names, double sampleRate, bool separateTracks)
    : files_(files), names_(names) {
    try {
        // A folder that cannot be made shows when the first file is.
        files_.makeFolders(names_.incompleteFolder());
    } catch (const base::FileError&) {
    }
    try {
        stereo_ = make(Track::stereo, {sampleRate, 2});
        noteOutput(files_, names_);
        if (separateTracks) {
            mono_.push_back(make(Track::microphone, {sampleRate, 1}));
            mono_.push_back(make(Track::system, {sampleRate, 1}));
        }
    } catch (...) {
        if (stereo_) remove();
        throw;
    }
}

std::unique_ptr<base::File> TemporaryAudio::createLocked(const std::filesystem::path& path) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        auto file = files_.create(path);
        if (file->tryLock(path)) return file;
        // A recovery at work just now takes the file, empty as it is, for a leftover and removes it.
        file->lock();
        if (file->tryLock(path)) return file;
    }
    throw base::FileError(EWOULDBLOCK, base::localized("The temporary recording is in use by another program."));
}

std::unique_ptr<CafWriter> TemporaryAudio::make(Track track, const AudioFormat& format) {
    const auto path = names_.temporary(track);
    auto file = track == Track::stereo ? createLocked(path) : files_.create(path);
    try {
        auto writer = std::make_unique<CafWriter>(std::move(file), format);
        syncing_.push_back(files_.open(path, base::FileAccess::update));
        return writer;
    } catch (...) {
        files_.removeIfPossible(path);
        throw;
    }
}

std::optional<std::string> TemporaryAudio::write(std::int64_t firstFrame, std::span<const float> interleaved) {
    const auto first = static_cast<std::uint64_t>(firstFrame);
    std::optional<std::string> problem;
    try {
        stereo_->write(first, interleaved);
    } catch (const base::FileError& error) {
        problem = error.description();
        const auto kept = stereo_->frames() > first ? stereo_->frames() - first : 0;
        lostFrames_ += interleaved.size() / 2 - kept;
    }
    for (std::size_t side = 0; side < mono_.size(); ++side) writeMono(side, first, interleaved);
    return problem;
}

void TemporaryAudio::writeMono(std::size_t side, std::uint64_t firstFrame, std::span<const float> interleaved) {
    extractChannel(interleaved, side, channel_);
    try {
        mono_[side]->write(firstFrame, channel_);
    } catch (const base::FileError&) {
        // The mono files are extras: the stereo file holds the same audio and reports its own failures.
    }
}

void TemporaryAudio::sync() {
    for (const auto& file : syncing_) file->sync();
    if (areNamesSynced_) return;
    // Until this has succeeded once, a crash would take the whole recording.
    files_.syncFolder(names_.incompleteFolder());
    areNamesSynced_ = true;
}

void TemporaryAudio::remove() noexcept {
    for (const auto track : kTracks) files_.removeIfPossible(names_.temporary(track));
}

}  // namespace tessivox::audio
