#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/Text.h"
#include "reader/ReaderParsing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tessivox;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto blocks = reader::parseBlocks(text);
    const auto shown = reader::summaryAttributedString(text);
    if (shown.size() != blocks.size()) std::abort();
    for (std::size_t index = 0; index < shown.size(); ++index) {
        const auto& paragraph = shown[index].text;
        if (!base::isUTF8(paragraph) || paragraph.find('\n') != paragraph.size() - 1 || shown[index].size <= 0)
            std::abort();
        const auto content = blocks[index].text;
        if (content.find("**") == std::string_view::npos && paragraph.find(content) == std::string::npos) std::abort();
    }
    return 0;
}
