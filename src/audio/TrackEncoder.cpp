#include "audio/TrackEncoder.h"

#include <algorithm>
#include <vector>

#include "audio/CafFile.h"
#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::audio {
namespace {

constexpr int kLowestTrackBitrate = 64000;
constexpr std::size_t kReadFrames = 48000;

std::string doneLine(const CafReader& reader, const RecordingFiles& names, Track track, const AudioEncoding& encoding) {
    return base::filled(
        "Converted {0} → {1} ({2} frames, {3}ch, {4}bps)",
        {names.temporary(track).filename().string(), names.final(track).filename().string(),
         std::to_string(reader.frames()), std::to_string(encoding.channels), std::to_string(encoding.bitrate)});
}

}  // namespace

AudioEncoding EncodingSettings::of(Track track) const {
    const auto rate = static_cast<int>(sampleRate);
    if (track == Track::stereo) return {rate, 2, stereoBitrate};
    return {rate, 1, std::max(kLowestTrackBitrate, stereoBitrate / 2)};
}

TrackEncoder::TrackEncoder(base::Files& files, AudioEncoderFactory& encoders, const RecordingFiles& names, Track track,
                           const EncodingSettings& settings)
    : files_(files), hidden_(names.hidden(track)) {
    files_.removeIfPossible(hidden_);
    auto file = files_.create(hidden_);
    try {
        encoder_ = encoders.open(std::move(file), settings.of(track));
    } catch (...) {
        files_.removeIfPossible(hidden_);
        throw;
    }
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

std::unique_ptr<TrackEncoder> encodeFromTemporary(base::Files& files, AudioEncoderFactory& encoders,
                                                  const RecordingFiles& names, Track track,
                                                  const EncodingSettings& settings, const EncodingProgress& progress,
                                                  const std::stop_token& stop) {
    const auto source = names.temporary(track);
    CafReader reader(files.open(source, base::FileAccess::read));
    if (reader.frames() < 1) {
        base::log("Empty input file, skipping: " + source.filename().string());
        return nullptr;
    }
    auto encoder = std::make_unique<TrackEncoder>(files, encoders, names, track, settings);
    const auto channels = static_cast<std::size_t>(reader.format().channels);
    std::vector<float> samples(kReadFrames * channels);
    for (std::uint64_t frame = 0; frame < reader.frames();) {
        if (stop.stop_requested())
            throw base::Error("StereoAudioWriter", -4, base::localized("The encoding was interrupted."));
        const auto count = reader.read(frame, samples);
        if (count == 0)
            throw base::Error("StereoAudioWriter", -1, base::localized("The temporary recording ended early."));
        encoder->write(std::span(samples).first(count * channels));
        frame += count;
        progress(static_cast<double>(frame) / static_cast<double>(reader.frames()));
    }
    encoder->finish(reader.frames());
    base::log(doneLine(reader, names, track, settings.of(track)));
    return encoder;
}

}  // namespace tessivox::audio
