#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "audio/ports/AudioEncoder.h"

namespace tessivox::bench {

/// Counts the frames that encoders have taken, so that who feeds them can wait. Without encoders of its own it takes
/// the frames and drops them.
class CountingEncoders final : public audio::AudioEncoderFactory {
public:
    explicit CountingEncoders(audio::AudioEncoderFactory* inner) : inner_(inner) {}

    std::uint64_t framesTaken() const { return taken_; }

    std::unique_ptr<audio::AudioEncoder> open(std::unique_ptr<base::File> file,
                                              const audio::AudioEncoding& encoding) override {
        auto inner = inner_ ? inner_->open(std::move(file), encoding) : nullptr;
        return std::make_unique<Encoder>(std::move(inner), static_cast<std::size_t>(encoding.channels), taken_);
    }

private:
    class Encoder final : public audio::AudioEncoder {
    public:
        Encoder(std::unique_ptr<audio::AudioEncoder> inner, std::size_t channels, std::atomic<std::uint64_t>& taken)
            : inner_(std::move(inner)), channels_(channels), taken_(taken) {}
        void write(std::span<const float> interleaved) override {
            if (inner_) inner_->write(interleaved);
            own_ += interleaved.size() / channels_;
            taken_ += interleaved.size() / channels_;
        }
        std::uint64_t finish() override { return inner_ ? inner_->finish() : own_; }

    private:
        std::unique_ptr<audio::AudioEncoder> inner_;
        std::size_t channels_;
        std::atomic<std::uint64_t>& taken_;
        std::uint64_t own_ = 0;
    };

    audio::AudioEncoderFactory* inner_;
    std::atomic<std::uint64_t> taken_ = 0;
};

}  // namespace tessivox::bench
