#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "audio/ports/PacketEncoder.h"

namespace tessivox::bench {

/// Counts the frames that encoders have taken, so that who feeds them can wait. Without encoders of its own it takes
/// the frames and drops them.
class CountingEncoders final : public audio::AudioEncoderFactory {
public:
    explicit CountingEncoders(audio::AudioEncoderFactory* inner) : inner_(inner) {}

    std::uint64_t framesTaken() const { return taken_; }

    std::unique_ptr<audio::PacketEncoder> makeEncoder(const audio::AudioEncoding& encoding) override {
        auto inner = inner_ ? inner_->makeEncoder(encoding) : nullptr;
        return std::make_unique<Encoder>(std::move(inner), static_cast<std::size_t>(encoding.channels), taken_);
    }
    std::unique_ptr<audio::PacketFile> makeFile(std::unique_ptr<base::File> file,
                                                const audio::AudioEncoding& encoding) override {
        if (inner_) return inner_->makeFile(std::move(file), encoding);
        return std::make_unique<Nothing>();
    }

private:
    class Encoder final : public audio::PacketEncoder {
    public:
        Encoder(std::unique_ptr<audio::PacketEncoder> inner, std::size_t channels, std::atomic<std::uint64_t>& taken)
            : inner_(std::move(inner)), channels_(channels), taken_(taken) {}
        void write(std::span<const float> interleaved, audio::AudioPackets& packets) override {
            const auto frames = interleaved.size() / channels_;
            if (inner_) {
                inner_->write(interleaved, packets);
            } else {
                packets.append({}, static_cast<std::uint32_t>(frames));
            }
            taken_ += frames;
        }
        void finish(audio::AudioPackets& packets) override {
            if (inner_) inner_->finish(packets);
        }

    private:
        std::unique_ptr<audio::PacketEncoder> inner_;
        std::size_t channels_;
        std::atomic<std::uint64_t>& taken_;
    };

    class Nothing final : public audio::PacketFile {
    public:
        void write(const audio::AudioPackets& packets) override {
            for (const auto& packet : packets.packets) frames_ += packet.frames;
        }
        std::uint64_t finish() override { return frames_; }

    private:
        std::uint64_t frames_ = 0;
    };

    audio::AudioEncoderFactory* inner_;
    std::atomic<std::uint64_t> taken_ = 0;
};

}  // namespace tessivox::bench
