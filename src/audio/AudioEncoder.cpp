#include "audio/AudioEncoder.h"

#include <utility>

#include "base/Text.h"

namespace tessivox::audio {

AudioEncoder::AudioEncoder(AudioEncoderFactory& factory, std::unique_ptr<base::File> file,
                           const AudioEncoding& encoding)
    : factory_(factory), encoding_(encoding), file_(factory.makeFile(std::move(file), encoding)) {}

void AudioEncoder::beginUse() {
    if (std::exchange(isUsable_, false)) return;
    throw base::Error("AudioEncoder", 1,
                      base::localized("This sound file is finished or has failed; begin a new one."));
}

void AudioEncoder::write(std::span<const float> interleaved) {
    beginUse();
    if (!encoder_) encoder_ = factory_.makeEncoder(encoding_);
    encoder_->write(interleaved, packets_);
    file_->write(packets_);
    packets_.clear();
    isUsable_ = true;
}

void AudioEncoder::add(const AudioPackets& packets) {
    beginUse();
    file_->write(packets);
    isUsable_ = true;
}

std::uint64_t AudioEncoder::finish() {
    beginUse();
    if (encoder_) encoder_->finish(packets_);
    file_->write(packets_);
    return file_->finish();
}

}  // namespace tessivox::audio
