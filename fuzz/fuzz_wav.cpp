#include <cstdint>
#include <cstdlib>

#include "FuzzedFile.h"
#include "backend/engines/WavFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tessivox::fuzz::FuzzedFile file(std::as_bytes(std::span(data, size)), 200);
    const auto layout = tessivox::backend::readWavLayout(file);
    if (!layout) return 0;
    const auto frame = static_cast<std::uint64_t>(layout->channels * layout->bitsPerSample / 8);
    if (frame == 0 || layout->sampleRate == 0 || layout->dataSize % frame != 0) std::abort();
    if (layout->dataSize != 0 && layout->dataOffset + layout->dataSize > file.size()) std::abort();
    return 0;
}
