#pragma once

#include <filesystem>

#include "base/ports/Files.h"
#include "platform/linux/posix/Descriptor.h"

namespace tessivox::posix {

/// An open file over its descriptor. Knows its path for error texts only.
class PosixFile final : public base::File {
public:
    PosixFile(Descriptor fd, std::filesystem::path path) : fd_(std::move(fd)), path_(std::move(path)) {}

    void append(std::span<const std::byte> bytes) override;
    void writeAt(std::uint64_t offset, std::span<const std::byte> bytes) override;
    std::size_t readAt(std::uint64_t offset, std::span<std::byte> bytes) override;
    bool cloneFrom(const base::File& source) override;
    void truncate(std::uint64_t size) override;
    std::uint64_t size() const override;
    void sync() override;
    bool tryLock(const std::filesystem::path& path) override;
    void lock() override;

private:
    Descriptor fd_;
    std::filesystem::path path_;

    bool isStillNamed(const std::filesystem::path& path) const;
    [[noreturn]] void fail(const char* verb) const;
};

}  // namespace tessivox::posix
