#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "backend/speech/MelSpectrum.h"
#include "backend/speech/SpeechDetector.h"
#include "backend/speech/Voice.h"

namespace tessivox::backend {

/// What a frame of speech says about the voice.
struct VoiceFrame {
    Voice::Values cepstrum{};
    float loudness = 0;      ///< only to compare frames
    bool standsOut = false;  ///< of the background; others say nothing
};

/// Describes voices by mel-frequency cepstral coefficients (Davis and Mermelstein, 1980) without the zeroth, which is
/// loudness. The background is hidden under an even layer of four times its power, the same for all segments, and only
/// the louder frames of a segment count; else noise, which all voices share, would make them alike.
class VoiceExtractor {
public:
    /// Measures the background of the segments. The sound stays the caller's and must outlive this.
    VoiceExtractor(std::span<const std::int16_t> sound, const std::vector<SpeechSegment>& segments);

    std::vector<VoiceFrame> frames(const SpeechSegment& segment);

private:
    std::span<const std::int16_t> sound_;
    MelSpectrum spectrum_;
    MelSpectrum::Values layer_{};
    std::array<MelSpectrum::Values, Voice::kSize> cosines_;

    std::vector<MelSpectrum::Values> spectra(const SpeechSegment& segment, std::size_t step);
    MelSpectrum::Values loudness(const MelSpectrum::Values& powers) const;
    Voice::Values cepstrum(const MelSpectrum::Values& loudness) const;
};

}  // namespace tessivox::backend
