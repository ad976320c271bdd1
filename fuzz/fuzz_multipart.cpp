#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "backend/http/MultipartReader.h"

namespace {

using tessivox::backend::MultipartReader;

struct Outcome {
    std::string file;
    bool isWhole = false;

    bool operator==(const Outcome&) const = default;
};

Outcome read(std::string_view boundary, std::string_view body, std::size_t piece) {
    Outcome outcome;
    MultipartReader reader(boundary, [&](std::span<const char> bytes) {
        if (bytes.empty()) std::abort();
        outcome.file.append(bytes.data(), bytes.size());
        return true;
    });
    bool isGood = true;
    while (isGood && !body.empty()) {
        const auto next = body.substr(0, piece);
        isGood = reader.take(next);
        body.remove_prefix(next.size());
    }
    outcome.isWhole = isGood && reader.isComplete();
    if (!outcome.isWhole) outcome.file.clear();
    return outcome;
}

}  // namespace

/// The first line is a Content-Type, the rest a body. It must not matter in which pieces the body arrives.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto line = input.substr(0, input.find('\n'));
    const auto boundary = MultipartReader::boundary(line).value_or("B");
    input.remove_prefix(std::min(input.size(), line.size() + 1));
    const auto whole = read(boundary, input, std::max<std::size_t>(input.size(), 1));
    for (const std::size_t piece : {1, 2, 7, 64}) {
        if (read(boundary, input, piece) != whole) std::abort();
    }
    return 0;
}
