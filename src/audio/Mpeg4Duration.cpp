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

/// Reads a few hundred bytes at a time: the boxes that are asked for one after another mostly stand side by side.
class Window {
public:
    explicit Window(base::File& file) : file_(file), size_(file.size()) {}

    std::uint64_t size() const { return size_; }
    /// The bytes at an offset, as far as the file reaches; at most kSize. Valid until the next call.
    std::span<const std::byte> at(std::uint64_t offset, std::uint64_t count) {
        count = std::min({count, size_ - std::min(offset, size_), std::uint64_t{kSize}});
        if (offset < begin_ || offset + count > begin_ + filled_) load(offset);
        const auto start = static_cast<std::size_t>(offset - begin_);
        return std::span(bytes_).first(filled_).subspan(start, std::min(static_cast<std::size_t>(count), filled_));
    }

private:
    static constexpr std::size_t kSize = 256;

    base::File& file_;
    std::uint64_t size_;
    std::uint64_t begin_ = 0;
    std::size_t filled_ = 0;
    std::array<std::byte, kSize> bytes_{};

    void load(std::uint64_t offset) {
        const auto rest = size_ - std::min(offset, size_);
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kSize, rest));
        filled_ = file_.readAt(offset, std::span(bytes_).first(wanted));
        begin_ = offset;
    }
};

/// The box at the start of an extent; absent if it is malformed or reaches beyond.
std::optional<Box> readBox(Window& file, Extent rest) {
    const auto bytes = file.at(rest.begin, std::min<std::uint64_t>(16, rest.size()));
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

/// Whether the boxes after the one that is looked for must be sound as well.
enum class After { checked, skipped };

/// The payload of the first box of a type among those that fill an extent; absent if there is none or if any of them is
/// malformed or cut short.
std::optional<Extent> findBox(Window& file, Extent extent, std::uint32_t type, After after) {
    std::optional<Extent> found;
    for (int count = 0; extent.size() > 0; ++count) {
        const auto box = readBox(file, extent);
        if (!box || count == kMaximumBoxes) return std::nullopt;
        if (box->type == type && !found) found = box->payload;
        if (found && after == After::skipped) break;
        extent.begin = box->payload.end;
    }
    return found;
}

std::optional<Mpeg4Duration> readMovieHeader(Window& file, Extent payload) {
    const auto bytes = file.at(payload.begin, std::min<std::uint64_t>(32, payload.size()));
    if (bytes.empty()) return std::nullopt;
    // Version, flags, two dates, time scale, duration; dates and duration have 8 bytes in version 1.
    const auto version = std::to_integer<int>(bytes[0]);
    const std::size_t width = version == 0 ? 4 : 8;
    const std::size_t scaleAt = 4 + 2 * width;
    if (version > 1 || bytes.size() < scaleAt + 4 + width) return std::nullopt;
    const auto timescale = static_cast<std::uint32_t>(bigEndian(bytes.subspan(scaleAt, 4)));
    const auto duration = bigEndian(bytes.subspan(scaleAt + 4, width));
    const auto unknown = std::numeric_limits<std::uint64_t>::max() >> (64 - 8 * width);
    if (timescale == 0 || duration == unknown) return std::nullopt;
    return Mpeg4Duration{duration, timescale};
}

}  // namespace

std::optional<Mpeg4Duration> readMpeg4Duration(base::File& source) {
    Window file(source);
    const auto movie = findBox(file, {0, file.size()}, typeOf("moov"), After::checked);
    if (!movie) return std::nullopt;
    const auto header = findBox(file, *movie, typeOf("mvhd"), After::skipped);
    if (!header) return std::nullopt;
    const auto duration = readMovieHeader(file, *header);
    // A header that leaves the duration to fragments says 0.
    if (duration && duration->duration == 0 && findBox(file, *movie, typeOf("mvex"), After::skipped))
        return std::nullopt;
    return duration;
}

}  // namespace tessivox::audio
