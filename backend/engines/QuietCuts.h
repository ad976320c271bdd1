#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tessivox::backend {

/// The samples in pieces of at most `most`, cut in the quietest 0.3 s within the last `back` samples of each, so that
/// no word is torn. At Sound::kSampleRate; `back` is at most `most`.
std::vector<std::span<const std::int16_t>> cutAtQuietPlaces(std::span<const std::int16_t> samples, std::size_t most,
                                                            std::size_t back);

}  // namespace tessivox::backend
