#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "base/ports/Files.h"

namespace tessivox::testing {

/// What a MemoryFile leaves behind.
struct MemoryDisk {
    std::vector<std::byte> contents;
    int operations = 0;                            ///< changes and syncs so far
    int failAt = std::numeric_limits<int>::max();  ///< the operation, counted from 0, that fails once with ENOSPC
    int syncedAt = -1;                             ///< the last sync's number
    int reads = 0;
    bool isClosed = false;
};

/// An open file whose bytes stand in a MemoryDisk, which must outlive it.
class MemoryFile : public base::File {
public:
    explicit MemoryFile(MemoryDisk& disk) : disk_(disk) {}
    ~MemoryFile() override { disk_.isClosed = true; }

    void append(std::span<const std::byte> bytes) override { writeAt(disk_.contents.size(), bytes); }
    void writeAt(std::uint64_t offset, std::span<const std::byte> bytes) override {
        beginOperation();
        const auto end = static_cast<std::size_t>(offset) + bytes.size();
        if (disk_.contents.size() < end) disk_.contents.resize(end);
        std::ranges::copy(bytes, disk_.contents.begin() + static_cast<std::ptrdiff_t>(offset));
    }
    std::size_t readAt(std::uint64_t offset, std::span<std::byte> bytes) override {
        ++disk_.reads;
        if (offset >= disk_.contents.size()) return 0;
        const auto rest = std::span(disk_.contents).subspan(static_cast<std::size_t>(offset));
        const auto count = std::min(rest.size(), bytes.size());
        std::ranges::copy(rest.first(count), bytes.begin());
        return count;
    }
    void truncate(std::uint64_t size) override {
        beginOperation();
        disk_.contents.resize(static_cast<std::size_t>(size));
    }
    std::uint64_t size() const override { return disk_.contents.size(); }
    void sync() override {
        beginOperation();
        disk_.syncedAt = disk_.operations - 1;
    }
    bool tryLock(const std::filesystem::path&) override { return true; }
    void lock() override {}

private:
    void beginOperation() {
        if (disk_.operations++ == disk_.failAt) throw base::FileError(ENOSPC, "The disk is full.");
    }

    MemoryDisk& disk_;
};

}  // namespace tessivox::testing
