#include "backend/worker/DecodedSound.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include "base/Error.h"
#include "platform/linux/ffmpeg/SoundReader.h"
#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

using posix::retry;

[[noreturn]] void fail(const std::string& sentence) { throw base::Error("backend", 1, sentence); }

[[noreturn]] void failToStore() {
    fail(errno == ENOSPC ? "The server's disk is full; free some space and start the transcription again."
                         : "The server could not store the decoded sound; check its state folder.");
}

void writeAll(int file, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const auto count = retry([&] { return ::write(file, bytes.data(), bytes.size()); });
        if (count < 0) failToStore();
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}

}  // namespace

DecodedSound::DecodedSound(const std::filesystem::path& upload, const std::filesystem::path& samples, double longest)
    : samples_(samples) {
    std::error_code nothingThere;
    std::filesystem::remove(samples_, nothingThere);
    const posix::Descriptor file(::open(samples_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) failToStore();
    try {
        decode(upload, file.get(), longest);
        if (bytes_ > 0) map(file.get());
    } catch (...) {
        std::filesystem::remove(samples_, nothingThere);
        throw;
    }
}

DecodedSound::~DecodedSound() {
    if (mapped_) ::munmap(const_cast<void*>(mapped_), bytes_);
    std::error_code nothingThere;
    std::filesystem::remove(samples_, nothingThere);
}

void DecodedSound::decode(const std::filesystem::path& upload, int file, double longest) {
    ffmpeg::SoundReader reader(upload, {Sound::kSampleRate, 1});
    std::vector<std::int16_t> block(Sound::kSampleRate);
    while (const auto frames = reader.read(std::span(block))) {
        const auto bytes = std::as_bytes(std::span(block).first(frames));
        bytes_ += bytes.size();
        if (static_cast<double>(bytes_ / sizeof(std::int16_t)) > longest * Sound::kSampleRate)
            fail("The recording is longer than the server takes; see --max-hours.");
        writeAll(file, bytes);
    }
}

void DecodedSound::map(int file) {
    void* const place = ::mmap(nullptr, bytes_, PROT_READ, MAP_PRIVATE, file, 0);
    if (place == MAP_FAILED) fail("The server has not enough memory for this recording; close other programs.");
    mapped_ = place;
}

Sound DecodedSound::sound() const {
    return {{static_cast<const std::int16_t*>(mapped_), bytes_ / sizeof(std::int16_t)}};
}

}  // namespace tessivox::backend
