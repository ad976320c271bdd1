#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "backend/engines/CaptionFormats.h"
#include "base/Error.h"
#include "base/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tessivox;
    constexpr double kSeconds = 60;
    try {
        double last = 0;
        for (const auto& [start, end, text, speaker] :
             backend::parseCaptions({reinterpret_cast<const char*>(data), size}, kSeconds)) {
            if (!(last <= start && start <= end && end <= kSeconds)) std::abort();
            last = start;
            const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7F; };
            for (const std::string_view line : {std::string_view(text), std::string_view(speaker)}) {
                if (!base::isUTF8(line) || std::ranges::any_of(line, isControl)) std::abort();
            }
            if (text.empty() || speaker.size() > 24 || speaker.find(':') != speaker.npos) std::abort();
        }
    } catch (const base::Error&) {
        // Refused, as most outputs are.
    }
    return 0;
}
