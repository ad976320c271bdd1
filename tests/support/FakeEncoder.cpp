#include "support/FakeEncoder.h"

#include <cstring>

namespace tessivox::testing {
namespace {

constexpr std::uint32_t kFinished = 0x646f6e65;

class Encoder final : public audio::AudioEncoder {
public:
    Encoder(std::unique_ptr<base::File> file, int channels, std::uint64_t missing)
        : file_(std::move(file)), channels_(static_cast<std::uint64_t>(channels)), missing_(missing) {
        const std::uint32_t unfinished = 0;
        file_->append(std::as_bytes(std::span(&unfinished, 1)));
    }
    void write(std::span<const float> interleaved) override {
        file_->append(std::as_bytes(interleaved));
        frames_ += interleaved.size() / channels_;
    }
    std::uint64_t finish() override {
        file_->writeAt(0, std::as_bytes(std::span(&kFinished, 1)));
        file_->sync();
        file_.reset();
        return frames_ - missing_;
    }

private:
    std::unique_ptr<base::File> file_;
    std::uint64_t channels_;
    std::uint64_t missing_;
    std::uint64_t frames_ = 0;
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

std::unique_ptr<audio::AudioEncoder> FakeEncoder::open(std::unique_ptr<base::File> file,
                                                       const audio::AudioEncoding& encoding) {
    opened.push_back(encoding);
    if (encoding.channels == refusedChannels) throw base::Error("FakeEncoder", 1, "The encoder was told to fail.");
    return std::make_unique<Encoder>(std::move(file), encoding.channels, missingFrames);
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
