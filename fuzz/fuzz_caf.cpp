#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "FuzzedFile.h"
#include "audio/CafFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using tessivox::audio::CafReader;
    try {
        CafReader reader(std::make_unique<tessivox::fuzz::FuzzedFile>(std::as_bytes(std::span(data, size)), 10));
        const auto& format = reader.format();
        if (format.channels < 1 || !std::isfinite(format.sampleRate) || format.sampleRate < 1) std::abort();
        const auto channels = static_cast<std::size_t>(format.channels);
        std::array<float, 640> samples{};
        const auto frames = reader.frames();
        for (const std::uint64_t first : {std::uint64_t{0}, frames / 2, frames - 1, frames, UINT64_MAX}) {
            const auto count = reader.read(first, samples);
            if (count > samples.size() / channels || (first < frames && count == 0)) std::abort();
            if (first >= frames && count > 0) std::abort();
        }
    } catch (const tessivox::base::Error&) {
        // Refused, as most files are.
    }
    return 0;
}
