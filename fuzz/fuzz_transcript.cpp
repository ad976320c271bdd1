#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/Text.h"
#include "reader/ReaderParsing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tessivox;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto transcript = reader::parseTranscript(text);
    for (const auto& segment : transcript) {
        if (!std::isfinite(segment.start)) std::abort();
        if (segment.start != (segment.time.empty() ? 0 : reader::parseTime(segment.time))) std::abort();
        for (const auto part : {segment.time, segment.speaker, segment.text}) {
            if (!base::isUTF8(part) || part.find('\n') != std::string_view::npos) std::abort();
        }
    }
    if (reader::speakerColors(transcript.entries()).size() > transcript.size()) std::abort();
    return 0;
}
