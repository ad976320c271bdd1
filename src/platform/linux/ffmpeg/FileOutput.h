#pragma once

#include <cstdint>
#include <exception>
#include <memory>

#include "base/ports/Files.h"
#include "platform/linux/ffmpeg/Libav.h"

namespace tessivox::ffmpeg {

/// Lets a muxer write into a base::File. What the file throws cannot pass through the C library: it is kept, ends all
/// further writing, and comes out of rethrowFailure(). One thread at a time.
class FileOutput {
public:
    /// Begins at offset 0. Throws MediaError.
    explicit FileOutput(std::unique_ptr<base::File> file);
    FileOutput(const FileOutput&) = delete;
    FileOutput& operator=(const FileOutput&) = delete;
    /// Closes the file; what is still in the buffer is lost.
    ~FileOutput();

    AVIOContext* context() { return context_; }
    /// Throws the FileError that the file has thrown, if any.
    void rethrowFailure() const;
    /// Writes the buffer out, syncs and closes. Throws FileError.
    void close();

private:
    static int writePacket(void* self, std::uint8_t* bytes, int size) noexcept;
    static std::int64_t seek(void* self, std::int64_t offset, int whence) noexcept;
    std::int64_t target(std::int64_t offset, int whence) const;

    std::unique_ptr<base::File> file_;
    AVIOContext* context_ = nullptr;
    std::int64_t position_ = 0;
    std::exception_ptr failure_;
};

}  // namespace tessivox::ffmpeg
