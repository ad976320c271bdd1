#include "audio/TemporaryEncoding.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "audio/SegmentedEncoding.h"
#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::audio {
namespace {

constexpr std::size_t kReadFrames = 48000;

std::string doneLine(const CafReader& reader, const RecordingFiles& names, Track track, const AudioEncoding& encoding) {
    return base::filled(
        "Converted {0} → {1} ({2} frames, {3}ch, {4}bps)",
        {names.temporary(track).filename().string(), names.final(track).filename().string(),
         std::to_string(reader.frames()), std::to_string(encoding.channels), std::to_string(encoding.bitrate)});
}

SampleSource samplesOf(base::Files& files, std::filesystem::path source, std::stop_token stop) {
    return [&files, source = std::move(source), stop = std::move(stop)](
               std::uint64_t begin, std::uint64_t end, const std::function<void(std::span<const float>)>& takePiece) {
        CafReader reader(files.open(source, base::FileAccess::read));
        forEachPiece(reader, begin, end, stop, takePiece);
    };
}

}  // namespace

void throwInterrupted() {
    throw base::Error("StereoAudioWriter", -4, base::localized("The encoding was interrupted."));
}

void forEachPiece(CafReader& reader, std::uint64_t begin, std::uint64_t end, const std::stop_token& stop,
                  const std::function<void(std::span<const float>)>& work) {
    const auto channels = static_cast<std::size_t>(reader.format().channels);
    std::vector<float> samples(kReadFrames * channels);
    while (begin < end) {
        if (stop.stop_requested()) throwInterrupted();
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kReadFrames, end - begin));
        const auto count = reader.read(begin, std::span(samples).first(wanted * channels));
        if (count == 0)
            throw base::Error("StereoAudioWriter", -1, base::localized("The temporary recording ended early."));
        work(std::span(samples).first(count * channels));
        begin += count;
    }
}

std::unique_ptr<TrackEncoder> encodeFromTemporary(const EncodingTools& tools, const RecordingFiles& names, Track track,
                                                  const EncodingSettings& settings, const EncodingProgress& progress,
                                                  const std::stop_token& stop) {
    const auto source = names.temporary(track);
    CafReader reader(tools.files.open(source, base::FileAccess::read));
    const auto frames = reader.frames();
    if (frames < 1) {
        base::log("Empty input file, skipping: " + source.filename().string());
        return nullptr;
    }
    auto encoding = settings.of(track);
    encoding.channels = reader.format().channels;
    auto encoder = std::make_unique<TrackEncoder>(tools.files, tools.encoders, names, track, encoding);
    if (!tools.helpers.empty() && frames >= 2 * tools.segmentFrames) {
        const auto addPackets = [&encoder](const AudioPackets& packets) { encoder->add(packets); };
        std::make_shared<SegmentedEncoding>(tools, samplesOf(tools.files, source, stop), encoding, frames)
            ->run(addPackets, progress);
    } else {
        std::uint64_t done = 0;
        forEachPiece(reader, 0, frames, stop, [&](std::span<const float> samples) {
            encoder->write(samples);
            done += samples.size() / static_cast<std::size_t>(encoding.channels);
            progress(static_cast<double>(done) / static_cast<double>(frames));
        });
    }
    encoder->finish(frames);
    base::log(doneLine(reader, names, track, encoding));
    return encoder;
}

}  // namespace tessivox::audio
