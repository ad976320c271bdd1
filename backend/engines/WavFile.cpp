#include "backend/engines/WavFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "backend/Engine.h"
#include "backend/engines/EngineError.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/FileErrors.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

static_assert(std::endian::native == std::endian::little, "WAV files hold samples as this machine does.");

constexpr std::uint64_t kHeaderSize = 44;
constexpr int kMostChunks = 64;

template <typename Number>
void put(std::string& bytes, Number number) {
    std::array<char, sizeof number> raw;
    std::memcpy(raw.data(), &number, sizeof number);
    bytes.append(raw.data(), raw.size());
}

template <typename Number>
Number numberAt(std::span<const std::byte> bytes, std::size_t offset) {
    Number number;
    std::memcpy(&number, bytes.subspan(offset, sizeof number).data(), sizeof number);
    return number;
}

std::string_view textOf(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string_view textOf(std::span<const std::int16_t> samples) { return textOf(std::as_bytes(samples)); }

void writeAll(int fd, std::string_view bytes, const std::filesystem::path& path) {
    while (!bytes.empty()) {
        const auto count = posix::retry([&] { return ::write(fd, bytes.data(), bytes.size()); });
        if (count < 0) throw posix::fileError(errno, "write", path);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

bool fill(base::File& file, std::uint64_t offset, std::span<std::byte> bytes) {
    return file.readAt(offset, bytes) == bytes.size();
}

/// Takes the "fmt " chunk's first 16 bytes: false if they make no sense.
bool readFormat(std::span<const std::byte, 16> chunk, WavLayout& layout) {
    constexpr std::uint16_t kPcm = 1;
    layout.channels = numberAt<std::uint16_t>(chunk, 2);
    layout.sampleRate = numberAt<std::uint32_t>(chunk, 4);
    layout.bitsPerSample = numberAt<std::uint16_t>(chunk, 14);
    const auto frameSize = numberAt<std::uint16_t>(chunk, 12);
    return numberAt<std::uint16_t>(chunk, 0) == kPcm && layout.channels >= 1 && layout.channels <= 64 &&
           layout.sampleRate >= 1 && layout.bitsPerSample >= 8 && layout.bitsPerSample <= 32 &&
           layout.bitsPerSample % 8 == 0 && frameSize == layout.channels * layout.bitsPerSample / 8;
}

}  // namespace

std::string wavHeader(std::uint64_t samples) {
    const auto dataSize = samples * sizeof(std::int16_t);
    if (samples > UINT32_MAX / 2 || dataSize > UINT32_MAX - kHeaderSize) {
        throw EngineError("The recording is too long for a WAV file: cut it into parts of at most 30 hours.");
    }
    constexpr auto kRate = static_cast<std::uint32_t>(Sound::kSampleRate);
    std::string bytes = "RIFF";
    put(bytes, static_cast<std::uint32_t>(kHeaderSize - 8 + dataSize));
    bytes += "WAVEfmt ";
    put(bytes, std::uint32_t{16});
    put(bytes, std::uint16_t{1});  // WAVE_FORMAT_PCM
    put(bytes, std::uint16_t{1});  // channels
    put(bytes, kRate);
    put(bytes, kRate * 2);          // bytes a second
    put(bytes, std::uint16_t{2});   // bytes a frame
    put(bytes, std::uint16_t{16});  // bits a sample
    bytes += "data";
    put(bytes, static_cast<std::uint32_t>(dataSize));
    return bytes;
}

std::string wavBytes(std::span<const std::int16_t> samples) {
    return wavHeader(samples.size()).append(textOf(samples));
}

void writeWavFile(const std::filesystem::path& path, std::span<const std::int16_t> samples) {
    const auto header = wavHeader(samples.size());
    const posix::Descriptor file(
        posix::retry([&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600); }));
    if (!file) throw posix::fileError(errno, "create", path);
    writeAll(file.get(), header, path);
    writeAll(file.get(), textOf(samples), path);
}

std::optional<WavLayout> readWavLayout(base::File& file) {
    const auto size = file.size();
    std::array<std::byte, 12> riff;
    if (!fill(file, 0, riff) || textOf(riff).substr(0, 4) != "RIFF" || textOf(riff).substr(8) != "WAVE") return {};
    WavLayout layout;
    std::uint64_t offset = riff.size();
    for (int chunk = 0; chunk < kMostChunks && offset < size; ++chunk) {
        std::array<std::byte, 8> head;
        if (!fill(file, offset, head)) return {};
        const auto name = textOf(head).substr(0, 4);
        const std::uint64_t chunkSize = numberAt<std::uint32_t>(head, 4);
        offset += head.size();
        if (name == "fmt ") {
            std::array<std::byte, 16> format;
            if (chunkSize < format.size() || layout.channels != 0 || !fill(file, offset, format)) return {};
            if (!readFormat(format, layout)) return {};
        } else if (name == "data") {
            if (layout.channels == 0) return {};
            const auto frameSize = static_cast<std::uint64_t>(layout.channels * layout.bitsPerSample / 8);
            layout.dataOffset = offset;
            layout.dataSize = std::min(chunkSize, size - std::min(offset, size)) / frameSize * frameSize;
            return layout;
        }
        offset += chunkSize + chunkSize % 2;
    }
    return {};
}

}  // namespace tessivox::backend
