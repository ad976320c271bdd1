#include "support/FakeEncoder.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace tessivox::testing {
namespace {

constexpr std::uint32_t kFinished = 0x646f6e65;

constexpr std::size_t kPacket = audio::PacketEncoder::kPacketFrames;

/// Like a real one it begins with a packet of silence and gives a packet out only once the next one's frames are there.
class Encoder final : public audio::PacketEncoder {
public:
    Encoder(int channels, float refusedSample)
        : channels_(static_cast<std::size_t>(channels)), refusedSample_(refusedSample) {}
    void write(std::span<const float> interleaved, audio::AudioPackets& packets) override {
        if (std::ranges::find(interleaved, refusedSample_) != interleaved.end()) {
            throw base::Error("FakeEncoder", 3, "The encoder was told to refuse this sound.");
        }
        if (samples_.empty()) samples_.assign(kPacket * channels_, 0);
        samples_.insert(samples_.end(), interleaved.begin(), interleaved.end());
        while (samples_.size() >= 3 * kPacket * channels_) give(kPacket, packets);
    }
    void finish(audio::AudioPackets& packets) override {
        while (!samples_.empty()) give(std::min(kPacket, samples_.size() / channels_), packets);
    }

private:
    std::size_t channels_;
    float refusedSample_;
    std::vector<float> samples_;

    void give(std::size_t frames, audio::AudioPackets& packets) {
        const auto samples = std::span(samples_).first(frames * channels_);
        packets.append(std::as_bytes(samples), static_cast<std::uint32_t>(frames));
        samples_.erase(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(samples.size()));
    }
};

class PacketFile final : public audio::PacketFile {
public:
    PacketFile(std::unique_ptr<base::File> file, std::uint64_t missing) : file_(std::move(file)), missing_(missing) {
        const std::uint32_t unfinished = 0;
        file_->append(std::as_bytes(std::span(&unfinished, 1)));
    }
    void write(const audio::AudioPackets& packets) override {
        if (packets.packets.empty()) return;
        const std::size_t priming = isPrimed_ ? 0 : packets.packets.front().size;
        isPrimed_ = true;
        for (const auto& packet : packets.packets) frames_ += packet.frames;
        file_->append(std::span(packets.bytes).subspan(priming));
    }
    std::uint64_t finish() override {
        file_->writeAt(0, std::as_bytes(std::span(&kFinished, 1)));
        file_->sync();
        file_.reset();
        return frames_ - std::min(frames_, std::uint64_t{kPacket}) - missing_;
    }

private:
    std::unique_ptr<base::File> file_;
    std::uint64_t missing_;
    std::uint64_t frames_ = 0;
    bool isPrimed_ = false;
};

class Converter final : public audio::AudioConverter {
public:
    Converter(FakeConverter& owner, const audio::AudioFormat& input, double outputRate)
        : owner_(owner), input_(input), ratio_(outputRate / input.sampleRate) {}
    void convert(std::span<const float> samples, std::vector<float>& output) override {
        const audio::AudioBuffer buffer{input_, samples};
        output.resize(static_cast<std::size_t>(static_cast<double>(buffer.frames()) * ratio_));
        for (std::size_t index = 0; index < output.size(); ++index) {
            const auto frame = static_cast<std::size_t>(static_cast<double>(index) / ratio_);
            output[index] = samples[frame * static_cast<std::size_t>(input_.channels)];
        }
    }
    void reset() override { ++owner_.resets; }

private:
    FakeConverter& owner_;
    audio::AudioFormat input_;
    double ratio_;
};

}  // namespace

std::unique_ptr<audio::PacketEncoder> FakeEncoder::makeEncoder(const audio::AudioEncoding& encoding) {
    ++encoders;
    return std::make_unique<Encoder>(encoding.channels, refusedSample);
}

std::unique_ptr<audio::PacketFile> FakeEncoder::makeFile(std::unique_ptr<base::File> file,
                                                         const audio::AudioEncoding& encoding) {
    opened.push_back(encoding);
    if (encoding.channels == refusedChannels) throw base::Error("FakeEncoder", 1, "The encoder was told to fail.");
    return std::make_unique<PacketFile>(std::move(file), missingFrames);
}

std::vector<float> FakeEncoder::samplesOf(base::Files& files, const std::filesystem::path& path) {
    const auto bytes = files.readAll(path, std::size_t{1} << 30);
    std::uint32_t mark = 0;
    std::memcpy(&mark, bytes.data(), sizeof mark);
    if (mark != kFinished) throw base::Error("FakeEncoder", 2, "The file was not finished.");
    std::vector<float> samples((bytes.size() - sizeof mark) / sizeof(float));
    std::memcpy(samples.data(), bytes.data() + sizeof mark, samples.size() * sizeof(float));
    return samples;
}

std::unique_ptr<audio::AudioConverter> FakeConverter::make(const audio::AudioFormat& input, double outputRate) {
    ++made;
    return std::make_unique<Converter>(*this, input, outputRate);
}

}  // namespace tessivox::testing
