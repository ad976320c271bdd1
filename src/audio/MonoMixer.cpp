#include "audio/MonoMixer.h"

#include "base/Error.h"
#include "base/Log.h"

namespace tessivox::audio {

std::span<const float> MonoMixer::mix(const AudioBuffer& buffer) {
    const bool isAtRate = buffer.format.sampleRate == outputRate_;
    if (isAtRate && buffer.format.channels == 1) return buffer.samples;
    if (!isAtRate || buffer.format.channels != 2) return convert(buffer);
    mono_.resize(buffer.frames());
    for (std::size_t frame = 0; frame < mono_.size(); ++frame) {
        mono_[frame] = (buffer.samples[2 * frame] + buffer.samples[2 * frame + 1]) * 0.5F;
    }
    return mono_;
}

void MonoMixer::reset() {
    if (converter_) converter_->reset();
}

std::span<const float> MonoMixer::convert(const AudioBuffer& buffer) {
    try {
        if (converterFormat_ != buffer.format) {
            converter_.reset();
            converterFormat_ = buffer.format;
            converter_ = converters_.make(buffer.format, outputRate_);
        }
        if (!converter_) return {};
        converter_->convert(buffer.samples, mono_);
        return mono_;
    } catch (const base::Error& error) {
        base::log("Audio of an unknown form is left out: " + error.description());
        return {};
    }
}

}  // namespace tessivox::audio
