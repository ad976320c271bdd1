#include "platform/linux/ffmpeg/FileOutput.h"

#include <cerrno>
#include <cstdio>
#include <span>
#include <utility>

#include "platform/linux/ffmpeg/MediaError.h"

namespace tessivox::ffmpeg {
namespace {

/// About four seconds of sound at the middle quality; the index at the end goes out in few writes.
constexpr int kBufferSize = 64 * 1024;

}  // namespace

FileOutput::FileOutput(std::unique_ptr<base::File> file) : file_(std::move(file)) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    context_ = buffer ? avio_alloc_context(buffer, kBufferSize, 1, this, nullptr, writePacket, seek) : nullptr;
    if (context_) return;
    av_free(buffer);
    check(AVERROR(ENOMEM), "The sound file could not be opened; close other applications and try again");
}

FileOutput::~FileOutput() {
    av_freep(&context_->buffer);
    avio_context_free(&context_);
}

void FileOutput::rethrowFailure() const {
    if (failure_) std::rethrow_exception(failure_);
}

void FileOutput::close() {
    avio_flush(context_);
    rethrowFailure();
    file_->sync();
    file_.reset();
}

int FileOutput::writePacket(void* self, std::uint8_t* bytes, int size) noexcept {
    auto& output = *static_cast<FileOutput*>(self);
    if (output.failure_) return AVERROR(EIO);
    try {
        const auto span = std::as_bytes(std::span(bytes, static_cast<std::size_t>(size)));
        output.file_->writeAt(static_cast<std::uint64_t>(output.position_), span);
        output.position_ += size;
        return size;
    } catch (...) {
        output.failure_ = std::current_exception();
        return AVERROR(EIO);
    }
}

std::int64_t FileOutput::seek(void* self, std::int64_t offset, int whence) noexcept {
    auto& output = *static_cast<FileOutput*>(self);
    try {
        const auto position = output.target(offset, whence & ~AVSEEK_FORCE);
        if (position >= 0 && whence != AVSEEK_SIZE) output.position_ = position;
        return position;
    } catch (...) {
        output.failure_ = std::current_exception();
        return AVERROR(EIO);
    }
}

std::int64_t FileOutput::target(std::int64_t offset, int whence) const {
    switch (whence) {
        case SEEK_SET:
            return offset;
        case SEEK_CUR:
            return position_ + offset;
        case SEEK_END:
            return static_cast<std::int64_t>(file_->size()) + offset;
        case AVSEEK_SIZE:
            return static_cast<std::int64_t>(file_->size());
        default:
            return AVERROR(EINVAL);
    }
}

}  // namespace tessivox::ffmpeg
