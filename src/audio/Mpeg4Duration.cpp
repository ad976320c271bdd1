#include "audio/Mpeg4Duration.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <span>
#include <string_view>

namespace tessivox::audio {
namespace {

/// More boxes side by side than any writer makes: a file that has them is not sound.
constexpr int kMaximumBoxes = 400;

/// A stretch of the file.
struct Extent {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;

    std::uint64_t size() const { return end - begin; }
};

struct Box {
    std::uint32_t type = 0;
    Extent payload;
};

constexpr std::uint32_t typeOf(std::string_view name) {
    std::uint32_t type = 0;
    for (const char letter : name) type = type << 8 | static_cast<unsigned char>(letter);
    return type;
}

std::uint64_t bigEndian(std::span<const std::byte> bytes) {
    std::uint64_t value = 0;
    for (const auto byte : bytes) value = value << 8 | std::to_integer<std::uint64_t>(byte);
    return value;
}

/// The box at the start of an extent; absent if it is malformed or reaches beyond.
std::optional<Box> readBox(base::File& file, Extent rest) {
    std::array<std::byte, 16> header{};
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(header.size(), rest.size()));
    const auto bytes = std::span(header).first(file.readAt(rest.begin, std::span(header).first(wanted)));
    if (bytes.size() < 8) return std::nullopt;
    std::uint64_t headerSize = 8;
    std::uint64_t size = bigEndian(bytes.first(4));
    if (size == 0) size = rest.size();
    if (size == 1) {
        if (bytes.size() < 16) return std::nullopt;
        headerSize = 16;
        size = bigEndian(bytes.subspan(8, 8));
    }
    if (size < headerSize || size > rest.size()) return std::nullopt;
    const auto type = static_cast<std::uint32_t>(bigEndian(bytes.subspan(4, 4)));
    return Box{type, {rest.begin + headerSize, rest.begin + size}};
}

/// The payload of the first box of a type among those that fill an extent; absent if there is none or if any of them is
/// malformed or cut short.
std::optional<Extent> findBox(base::File& file, Extent extent, std::uint32_t type) {
    std::optional<Extent> found;
    for (int count = 0; extent.size() > 0; ++count) {
        const auto box = readBox(file, extent);
        if (!box || count == kMaximumBoxes) return std::nullopt;
        if (box->type == type && !found) found = box->payload;
        extent.begin = box->payload.end;
    }
    return found;
}

std::optional<Mpeg4Duration> readMovieHeader(base::File& file, Extent payload) {
    std::array<std::byte, 32> bytes{};
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), payload.size()));
    const auto count = file.readAt(payload.begin, std::span(bytes).first(wanted));
    if (count == 0) return std::nullopt;
    // Version, flags, two dates, time scale, duration; dates and duration have 8 bytes in version 1.
    const auto version = std::to_integer<int>(bytes[0]);
    const std::size_t width = version == 0 ? 4 : 8;
    const std::size_t scaleAt = 4 + 2 * width;
    if (version > 1 || count < scaleAt + 4 + width) return std::nullopt;
    const auto timescale = static_cast<std::uint32_t>(bigEndian(std::span(bytes).subspan(scaleAt, 4)));
    const auto duration = bigEndian(std::span(bytes).subspan(scaleAt + 4, width));
    const auto unknown = std::numeric_limits<std::uint64_t>::max() >> (64 - 8 * width);
    if (timescale == 0 || duration == unknown) return std::nullopt;
    return Mpeg4Duration{duration, timescale};
}

}  // namespace

std::optional<Mpeg4Duration> readMpeg4Duration(base::File& file) {
    const auto movie = findBox(file, {0, file.size()}, typeOf("moov"));
    if (!movie) return std::nullopt;
    const auto header = findBox(file, *movie, typeOf("mvhd"));
    if (!header) return std::nullopt;
    const auto duration = readMovieHeader(file, *header);
    // A header that leaves the duration to fragments says 0.
    if (duration && duration->duration == 0 && findBox(file, *movie, typeOf("mvex"))) return std::nullopt;
    return duration;
}

}  // namespace tessivox::audio
