#pragma once

#include <cstddef>
#include <vector>

namespace tessivox::bench {

/// What a meeting sounds like to an encoder: two voices of espeak-ng take turns, with pauses and a little noise of a
/// room; told again when it is over. Always the same. 48 kHz.
class SpokenDialogue {
public:
    static constexpr int kRate = 48000;

    /// Needs the programs espeak-ng and ffmpeg. Throws std::runtime_error.
    SpokenDialogue();
    /// Replaces `stereo` by the next frames, the first voice left, the second right.
    void next(std::size_t frames, std::vector<float>& stereo);

private:
    std::vector<float> tape_;  ///< stereo
    std::size_t at_ = 0;       ///< index into it
};

}  // namespace tessivox::bench
