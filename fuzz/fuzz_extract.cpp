#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "backend/summary/ExtractiveSummarizer.h"
#include "base/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tessivox;
    const std::string_view transcript(reinterpret_cast<const char*>(data), size);
    const auto summary = backend::extractSummary(transcript, std::string(transcript.substr(0, 50)));
    if (!summary.starts_with("# Title: ") || summary.find("\n\n## Summary\n") == summary.npos) std::abort();
    const auto isControl = [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7F; };
    if (!base::isUTF8(summary) || std::ranges::any_of(summary, isControl) || summary.size() > 16'000) std::abort();
    return 0;
}
