#include "platform/linux/ffmpeg/SoundConversion.h"

#include <algorithm>
#include <array>
#include <functional>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "audio/EncodingTools.h"
#include "audio/SegmentedEncoding.h"
#include "base/Log.h"

namespace tessivox::ffmpeg {
namespace {

/// The file has told a greater length than it has.
struct ShorterThanTold final : base::Error {
    ShorterThanTold() : Error("ffmpeg", 0, "The sound ends before its time.") {}
};

/// Readers of one file, for threads that each want some stretch of it. To open a long file takes a while.
class SharedReaders {
public:
    SharedReaders(std::filesystem::path path, SoundForm form, std::stop_token stop, std::unique_ptr<SoundReader> first)
        : path_(std::move(path)), form_(form), stop_(std::move(stop)) {
        idle_.push_back(std::move(first));
    }

    void read(std::uint64_t begin, std::uint64_t end, const std::function<void(std::span<const float>)>& takePiece) {
        auto reader = take();
        reader->seek(begin);
        const auto channels = static_cast<std::size_t>(form_.channels);
        std::vector<float> second(static_cast<std::size_t>(form_.sampleRate) * channels);
        while (begin < end) {
            const auto wanted = std::min<std::uint64_t>(end - begin, static_cast<std::uint64_t>(form_.sampleRate));
            const auto frames = reader->read(std::span(second).first(static_cast<std::size_t>(wanted) * channels));
            const auto piece = frames > 0 ? std::span(second).first(frames * channels) : lastFrames(end - begin);
            takePiece(piece);
            begin += piece.size() / channels;
        }
        const std::lock_guard lock(mutex_);
        idle_.push_back(std::move(reader));
    }

private:
    std::filesystem::path path_;
    SoundForm form_;
    std::stop_token stop_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<SoundReader>> idle_;

    /// Another rate than the file's makes lengths round.
    std::span<const float> lastFrames(std::uint64_t missing) const {
        static constexpr std::array<float, 8> kSilence{};
        const auto samples = missing * static_cast<std::uint64_t>(form_.channels);
        if (samples > kSilence.size()) throw ShorterThanTold();
        return std::span(kSilence).first(static_cast<std::size_t>(samples));
    }

    std::unique_ptr<SoundReader> take() {
        {
            const std::lock_guard lock(mutex_);
            if (!idle_.empty()) {
                auto reader = std::move(idle_.back());
                idle_.pop_back();
                return reader;
            }
        }
        return std::make_unique<SoundReader>(path_, form_, stop_);
    }
};

/// Done by two threads the sound is cut at this length.
constexpr std::uint64_t kSegmentSeconds = 120;

std::uint64_t segmentFrames(int sampleRate) {
    constexpr auto kPacket = audio::PacketEncoder::kPacketFrames;
    return kSegmentSeconds * static_cast<std::uint64_t>(sampleRate) / kPacket * kPacket;
}

}  // namespace

/// One conversion, in one attempt or two.
struct SoundConversion::Job {
    const std::filesystem::path& source;
    const std::filesystem::path& target;
    audio::AudioEncoding encoding;
    const std::function<void(double)>& progress;
    const std::stop_token& stop;
    double told = 0;

    void tellMore(double share) {
        if (share > told) progress(told = std::min(1.0, share));
    }
};

SoundConversion::SoundConversion(base::Runtime& runtime, base::Files& files)
    : files_(files), helper_(runtime.makeQueue("com.tessivox.conversion.helper", base::QueuePriority::utility)) {}

double SoundConversion::convertToM4A(const std::filesystem::path& source, const std::filesystem::path& target,
                                     const audio::AudioEncoding& form, const std::function<void(double)>& progress,
                                     const std::stop_token& stop) {
    const SoundForm wanted{form.sampleRate, form.channels};
    auto reader = std::make_unique<SoundReader>(source, wanted, stop);
    Job job{source, target, form, progress, stop};
    job.encoding.channels = reader->channels();
    job.encoding.bitrate = form.bitrate / form.channels * reader->channels();
    if (reader->canSeek() && reader->frames().value_or(0) >= 2 * segmentFrames(form.sampleRate)) {
        try {
            return encodeInSegments(job, std::move(reader));
        } catch (const ShorterThanTold&) {
            base::log("Sound file is damaged, converting what there is: " + source.filename().string());
        }
        reader = std::make_unique<SoundReader>(source, wanted, stop);
    }
    return encode(job, *reader);
}

std::unique_ptr<audio::AudioEncoder> SoundConversion::beginTarget(const Job& job) {
    auto file = files_.open(job.target, base::FileAccess::update);
    file->truncate(0);
    return std::make_unique<audio::AudioEncoder>(encoders_, std::move(file), job.encoding);
}

double SoundConversion::encode(Job& job, SoundReader& reader) {
    const auto encoder = beginTarget(job);
    const auto channels = static_cast<std::size_t>(reader.channels());
    std::vector<float> second(static_cast<std::size_t>(reader.sampleRate()) * channels);
    std::uint64_t done = 0;
    while (const auto frames = reader.read(std::span(second))) {
        encoder->write(std::span(second).first(frames * channels));
        done += frames;
        job.tellMore(static_cast<double>(done) / static_cast<double>(reader.frames().value_or(done)));
    }
    job.tellMore(1);
    return static_cast<double>(encoder->finish()) / reader.sampleRate();
}

double SoundConversion::encodeInSegments(Job& job, std::unique_ptr<SoundReader> reader) {
    audio::EncodingTools tools{files_, encoders_, {helper_.get()}};
    tools.segmentFrames = segmentFrames(job.encoding.sampleRate);
    const auto frames = reader->frames().value_or(0);
    const SoundForm form{job.encoding.sampleRate, job.encoding.channels};
    const auto readers = std::make_shared<SharedReaders>(job.source, form, job.stop, std::move(reader));
    const auto read = [readers](std::uint64_t begin, std::uint64_t end,
                                const std::function<void(std::span<const float>)>& takePiece) {
        readers->read(begin, end, takePiece);
    };
    const auto encoder = beginTarget(job);
    const auto add = [&encoder](const audio::AudioPackets& packets) { encoder->add(packets); };
    const auto tell = [&job](double share) { job.tellMore(share); };
    std::make_shared<audio::SegmentedEncoding>(tools, read, job.encoding, frames)->run(add, tell);
    return static_cast<double>(encoder->finish()) / form.sampleRate;
}

}  // namespace tessivox::ffmpeg
