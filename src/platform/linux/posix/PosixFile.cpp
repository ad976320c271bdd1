#include "platform/linux/posix/PosixFile.h"

#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/linux/posix/FileErrors.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {

void PosixFile::fail(const char* verb) const { throw fileError(errno, verb, path_); }

void PosixFile::append(std::span<const std::byte> bytes) { writeAt(size(), bytes); }

void PosixFile::writeAt(std::uint64_t offset, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const auto put =
            retry([&] { return ::pwrite(fd_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
        if (put < 0) fail("write");
        if (put == 0) throw fileError(EIO, "write", path_);
        bytes = bytes.subspan(static_cast<std::size_t>(put));
        offset += static_cast<std::uint64_t>(put);
    }
}

std::size_t PosixFile::readAt(std::uint64_t offset, std::span<std::byte> bytes) {
    std::size_t total = 0;
    while (total < bytes.size()) {
        const auto rest = bytes.subspan(total);
        const auto got =
            retry([&] { return ::pread(fd_.get(), rest.data(), rest.size(), static_cast<off_t>(offset + total)); });
        if (got < 0) fail("read");
        if (got == 0) break;
        total += static_cast<std::size_t>(got);
    }
    return total;
}

bool PosixFile::cloneFrom(const base::File& source) {
    const auto* other = dynamic_cast<const PosixFile*>(&source);
    return other && retry([&] { return ::ioctl(fd_.get(), FICLONE, other->fd_.get()); }) == 0;
}

void PosixFile::truncate(std::uint64_t size) {
    if (retry([&] { return ::ftruncate(fd_.get(), static_cast<off_t>(size)); }) < 0) fail("resize");
}

std::uint64_t PosixFile::size() const {
    struct stat info {};
    if (::fstat(fd_.get(), &info) < 0) fail("read");
    return static_cast<std::uint64_t>(info.st_size);
}

void PosixFile::sync() {
    if (retry([&] { return ::fdatasync(fd_.get()); }) < 0) fail("write");
}

bool PosixFile::tryLock(const std::filesystem::path& path) {
    if (retry([&] { return ::flock(fd_.get(), LOCK_EX | LOCK_NB); }) < 0) {
        if (errno == EWOULDBLOCK) return false;
        fail("lock");
    }
    if (isStillNamed(path)) return true;
    ::flock(fd_.get(), LOCK_UN);
    return false;
}

bool PosixFile::isStillNamed(const std::filesystem::path& path) const {
    struct stat open {};
    struct stat named {};
    if (::fstat(fd_.get(), &open) < 0 || ::stat(path.c_str(), &named) < 0) return false;
    return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

void PosixFile::lock() {
    if (retry([&] { return ::flock(fd_.get(), LOCK_EX); }) < 0) fail("lock");
}

}  // namespace tessivox::posix
