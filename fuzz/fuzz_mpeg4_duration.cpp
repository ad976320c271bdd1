#include <cstdint>
#include <cstdlib>

#include "FuzzedFile.h"
#include "audio/Mpeg4Duration.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tessivox::fuzz::FuzzedFile file(std::as_bytes(std::span(data, size)), 2000);
    const auto duration = tessivox::audio::readMpeg4Duration(file);
    if (duration && duration->timescale == 0) std::abort();
    return 0;
}
