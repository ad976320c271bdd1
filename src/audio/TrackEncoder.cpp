#include "audio/TrackEncoder.h"

#include <algorithm>
#include <cerrno>

#include "base/Text.h"

namespace tessivox::audio {
namespace {

constexpr int kLowestTrackBitrate = 64000;

}  // namespace

AudioEncoding EncodingSettings::of(Track track) const {
    const auto rate = static_cast<int>(sampleRate);
    if (track == Track::stereo) return {rate, 2, stereoBitrate};
    return {rate, 1, std::max(kLowestTrackBitrate, stereoBitrate / 2)};
}

TrackEncoder::TrackEncoder(base::Files& files, AudioEncoderFactory& encoders, const RecordingFiles& names, Track track,
                           const AudioEncoding& encoding)
    : files_(files), hidden_(names.hidden(track)) {
    if (files_.exists(hidden_)) removeLeftover();
    auto file = files_.create(hidden_);
    lock();
    try {
        encoder_ = std::make_unique<AudioEncoder>(encoders, std::move(file), encoding);
    } catch (...) {
        files_.removeIfPossible(hidden_);
        throw;
    }
}

void TrackEncoder::removeLeftover() {
    lock();
    files_.removeIfPossible(hidden_);
}

void TrackEncoder::lock() {
    lock_ = files_.open(hidden_, base::FileAccess::update);
    try {
        if (lock_->tryLock(hidden_)) return;
    } catch (const base::FileError&) {
        return;  // Some network folders have no locks: recordings are saved there all the same.
    }
    throw base::FileError(EWOULDBLOCK, base::localized("The sound file is in use by another program; try again."));
}

TrackEncoder::~TrackEncoder() {
    encoder_.reset();
    if (!isPublished_) files_.removeIfPossible(hidden_);
}

void TrackEncoder::finish(std::uint64_t expectedFrames) {
    const auto frames = encoder_->finish();
    if (frames == expectedFrames) return;
    throw base::Error("StereoAudioWriter", -3, base::localized("The encoded file does not hold the whole recording."));
}

void TrackEncoder::publish(const std::filesystem::path& target) {
    files_.move(hidden_, target);
    isPublished_ = true;
}

}  // namespace tessivox::audio
