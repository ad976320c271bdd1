#include "support/SparseBytes.h"

#include <algorithm>

namespace tessivox::testing {

void SparseBytes::resize(std::uint64_t size) {
    const auto count = static_cast<std::size_t>((size + kBlock - 1) / kBlock);
    for (auto index = count; index < blocks_.size(); ++index) dirty_.insert(index);
    blocks_.resize(count);
    const auto rest = static_cast<std::size_t>(size % kBlock);
    if (size < size_ && rest > 0 && blocks_.back()) {
        auto& last = blockForWriting(count - 1);
        std::fill(last.begin() + static_cast<std::ptrdiff_t>(rest), last.end(), std::byte{});
    }
    size_ = size;
}

void SparseBytes::write(std::uint64_t offset, std::span<const std::byte> bytes) {
    if (offset + bytes.size() > size_) resize(offset + bytes.size());
    while (!bytes.empty()) {
        const auto start = static_cast<std::size_t>(offset % kBlock);
        const auto count = std::min(bytes.size(), kBlock - start);
        auto& block = blockForWriting(static_cast<std::size_t>(offset / kBlock));
        std::copy_n(bytes.begin(), count, block.begin() + static_cast<std::ptrdiff_t>(start));
        bytes = bytes.subspan(count);
        offset += count;
    }
}

std::size_t SparseBytes::read(std::uint64_t offset, std::span<std::byte> bytes) const {
    if (offset >= size_) return 0;
    const auto total = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), size_ - offset));
    for (std::size_t done = 0; done < total;) {
        const auto start = static_cast<std::size_t>((offset + done) % kBlock);
        const auto count = std::min(total - done, kBlock - start);
        const auto into = bytes.subspan(done, count);
        if (const auto& block = blocks_[static_cast<std::size_t>((offset + done) / kBlock)]) {
            std::copy_n(block->begin() + static_cast<std::ptrdiff_t>(start), count, into.begin());
        } else {
            std::fill(into.begin(), into.end(), std::byte{});
        }
        done += count;
    }
    return total;
}

void SparseBytes::takeBlock(const SparseBytes& other, std::size_t index) {
    if (index >= other.blocks_.size()) return;
    if (index >= blocks_.size()) blocks_.resize(index + 1);
    blocks_[index] = other.blocks_[index];
}

SparseBytes::Block& SparseBytes::blockForWriting(std::size_t index) {
    auto& block = blocks_[index];
    if (!block) {
        block = std::make_shared<Block>();
    } else if (block.use_count() > 1) {
        block = std::make_shared<Block>(*block);
    }
    dirty_.insert(index);
    return *block;
}

}  // namespace tessivox::testing
