#include "support/FakeEncoder.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace tessivox::testing {
namespace {

using namespace std::string_view_literals;

/// Where the box of the media data begins, and where its contents do.
constexpr std::size_t kMediaAt = 16, kSamplesAt = 24;
constexpr auto kStart =
    "\0\0\0\x10"
    "ftypM4A \0\0\0\0"
    "\0\0\0\0"
    "mdat"sv;
static_assert(kStart.size() == kSamplesAt);

std::string bigEndian(std::uint32_t number) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xff);
    return bytes;
}

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

/// An MPEG-4 file whose media data are the samples; the size of that box, and the index, come at the end.
class PacketFile final : public audio::PacketFile {
public:
    PacketFile(std::unique_ptr<base::File> file, const audio::AudioEncoding& encoding, std::uint64_t missing)
        : file_(std::move(file)), rate_(static_cast<std::uint32_t>(encoding.sampleRate)), missing_(missing) {
        file_->append(std::as_bytes(std::span(kStart)));
    }
    void write(const audio::AudioPackets& packets) override {
        if (packets.packets.empty()) return;
        const std::size_t priming = isPrimed_ ? 0 : packets.packets.front().size;
        isPrimed_ = true;
        for (const auto& packet : packets.packets) frames_ += packet.frames;
        file_->append(std::span(packets.bytes).subspan(priming));
    }
    std::uint64_t finish() override {
        const auto playable = frames_ - std::min(frames_, std::uint64_t{kPacket}) - missing_;
        const auto size = static_cast<std::uint32_t>(file_->size() - kMediaAt);
        std::string index;
        for (const std::uint32_t number : {36U, 0x6d6f6f76U, 28U, 0x6d766864U, 0U, 0U, 0U, rate_})
            index += bigEndian(number);
        index += bigEndian(static_cast<std::uint32_t>(playable));
        file_->append(std::as_bytes(std::span(index)));
        const auto sizeField = bigEndian(size);
        file_->writeAt(kMediaAt, std::as_bytes(std::span(sizeField)));
        file_->sync();
        file_.reset();
        return playable;
    }

private:
    std::unique_ptr<base::File> file_;
    std::uint32_t rate_;
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
    return std::make_unique<PacketFile>(std::move(file), encoding, missingFrames);
}

std::vector<float> FakeEncoder::samplesOf(base::Files& files, const std::filesystem::path& path) {
    const auto bytes = files.readAll(path, std::size_t{1} << 30);
    std::size_t size = 0;
    for (const char byte : bytes.substr(std::min(kMediaAt, bytes.size()), 4))
        size = size << 8 | static_cast<unsigned char>(byte);
    if (size < kSamplesAt - kMediaAt || bytes.size() < kMediaAt + size)
        throw base::Error("FakeEncoder", 2, "The file was not finished.");
    std::vector<float> samples((kMediaAt + size - kSamplesAt) / sizeof(float));
    std::memcpy(samples.data(), bytes.data() + kSamplesAt, samples.size() * sizeof(float));
    return samples;
}

std::unique_ptr<audio::AudioConverter> FakeConverter::make(const audio::AudioFormat& input, double outputRate) {
    ++made;
    return std::make_unique<Converter>(*this, input, outputRate);
}

}  // namespace tessivox::testing
