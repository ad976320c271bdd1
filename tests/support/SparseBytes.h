#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <vector>

namespace tessivox::testing {

/// A file's bytes in blocks that copies share until they are written. What was never written reads as zeros and takes
/// no room.
class SparseBytes {
public:
    static constexpr std::size_t kBlock = 4096;

    std::uint64_t size() const { return size_; }
    void resize(std::uint64_t size);
    void write(std::uint64_t offset, std::span<const std::byte> bytes);
    std::size_t read(std::uint64_t offset, std::span<std::byte> bytes) const;

    /// The blocks written or cut since the last forgetDirty().
    const std::set<std::size_t>& dirty() const { return dirty_; }
    void forgetDirty() { dirty_.clear(); }
    /// Takes one block of another's bytes, size aside.
    void takeBlock(const SparseBytes& other, std::size_t index);

private:
    using Block = std::array<std::byte, kBlock>;
    std::uint64_t size_ = 0;
    std::vector<std::shared_ptr<Block>> blocks_;
    std::set<std::size_t> dirty_;

    Block& blockForWriting(std::size_t index);
};

}  // namespace tessivox::testing
