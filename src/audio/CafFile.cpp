#include "audio/CafFile.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "base/Text.h"

namespace tessivox::audio {
namespace {

static_assert(std::endian::native == std::endian::little, "samples are written in the machine's order");

constexpr std::uint32_t kFloat = 1, kLittleEndian = 2;  // format flags of linear PCM
constexpr std::uint64_t kSizeOffset = 68;               // of the data chunk's size field
constexpr std::uint64_t kEditCount = 4;                 // bytes of the data chunk before its samples
static_assert(kSizeOffset + sizeof(std::uint64_t) + kEditCount == CafWriter::kHeaderSize);
static_assert(CafWriter::kHeaderSize % (2 * sizeof(float)) == 0, "stereo frames end where pages do");

using Header = std::array<std::byte, CafWriter::kHeaderSize>;

template <typename Number>
void put(std::span<std::byte> bytes, std::size_t offset, Number number) {
    for (std::size_t index = 0; index < sizeof number; ++index) {
        bytes[offset + index] = static_cast<std::byte>(number >> (8 * (sizeof number - 1 - index)));
    }
}

template <typename Number>
Number get(std::span<const std::byte> bytes, std::size_t offset) {
    Number number = 0;
    for (std::size_t index = 0; index < sizeof number; ++index) {
        number = static_cast<Number>((number << 8) | std::to_integer<Number>(bytes[offset + index]));
    }
    return number;
}

constexpr std::uint32_t fourCC(const char (&text)[5]) {
    std::uint32_t code = 0;
    for (int index = 0; index < 4; ++index) code = (code << 8) | static_cast<unsigned char>(text[index]);
    return code;
}

Header makeHeader(const AudioFormat& format) {
    Header header{};
    const auto channels = static_cast<std::uint32_t>(format.channels);
    put(header, 0, fourCC("caff"));
    put(header, 4, std::uint32_t{1} << 16);  // version 1, no flags
    put(header, 8, fourCC("desc"));
    put(header, 12, std::uint64_t{32});
    put(header, 20, std::bit_cast<std::uint64_t>(format.sampleRate));
    put(header, 28, fourCC("lpcm"));
    put(header, 32, kFloat | kLittleEndian);
    put(header, 36, channels * 4);  // bytes per packet
    put(header, 40, std::uint32_t{1});
    put(header, 44, channels);
    put(header, 48, std::uint32_t{32});
    put(header, 52, fourCC("free"));  // an empty chunk, for the alignment
    put(header, 64, fourCC("data"));
    put(header, kSizeOffset, kEditCount);
    return header;
}

[[noreturn]] void refuse() {
    throw base::Error("CafReader", 1, base::localized("The file is not a temporary recording of this program."));
}

}  // namespace

CafWriter::CafWriter(std::unique_ptr<base::File> file, const AudioFormat& format)
    : file_(std::move(file)), frameBytes_(static_cast<std::uint64_t>(format.channels) * sizeof(float)) {
    file_->writeAt(0, makeHeader(format));
}

void CafWriter::write(std::uint64_t firstFrame, std::span<const float> interleaved) {
    try {
        file_->writeAt(kHeaderSize + firstFrame * frameBytes_, std::as_bytes(interleaved));
        frames_ = std::max(frames_, firstFrame + interleaved.size_bytes() / frameBytes_);
        writeSize();
    } catch (const base::FileError&) {
        cutToWholeFrames();
        throw;
    }
}

void CafWriter::writeSize() {
    std::array<std::byte, 8> size{};
    put(std::span(size), 0, kEditCount + frames_ * frameBytes_);
    file_->writeAt(kSizeOffset, size);
}

void CafWriter::cutToWholeFrames() {
    try {
        const auto size = std::max(file_->size(), kHeaderSize);
        frames_ = (size - kHeaderSize) / frameBytes_;
        file_->truncate(kHeaderSize + frames_ * frameBytes_);
        writeSize();
    } catch (const base::FileError&) {
        // The reader copes with any tail and any size field; the next piece puts both right.
    }
}

CafReader::CafReader(std::unique_ptr<base::File> file) : file_(std::move(file)) {
    Header header{};
    if (file_->readAt(0, header) < header.size()) refuse();
    const auto expected = [&](std::size_t offset, std::uint32_t value) {
        return get<std::uint32_t>(header, offset) == value;
    };
    const auto rate = std::bit_cast<double>(get<std::uint64_t>(header, 20));
    const auto channels = get<std::uint32_t>(header, 44);
    const bool isOurs = expected(0, fourCC("caff")) && expected(8, fourCC("desc")) && expected(28, fourCC("lpcm")) &&
                        expected(32, kFloat | kLittleEndian) && expected(40, 1) && expected(48, 32) &&
                        expected(52, fourCC("free")) && expected(64, fourCC("data"));
    if (!isOurs || channels < 1 || channels > 64 || !std::isfinite(rate) || rate < 1 || rate > 1e6) refuse();
    if (!expected(36, channels * 4)) refuse();
    format_ = {rate, static_cast<int>(channels)};
    frameBytes_ = channels * sizeof(float);
    // Frames are placed by their number and the file only grows, so whatever stands behind the header is audio, and a
    // size field that says less was merely not put right any more.
    frames_ = (file_->size() - CafWriter::kHeaderSize) / frameBytes_;
}

std::size_t CafReader::read(std::uint64_t firstFrame, std::span<float> interleaved) {
    if (firstFrame >= frames_) return 0;
    const auto wanted = std::min<std::uint64_t>(interleaved.size_bytes() / frameBytes_, frames_ - firstFrame);
    const auto bytes = std::as_writable_bytes(interleaved).first(wanted * frameBytes_);
    return file_->readAt(CafWriter::kHeaderSize + firstFrame * frameBytes_, bytes) / frameBytes_;
}

}  // namespace tessivox::audio
