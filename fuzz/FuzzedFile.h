#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <span>

#include "base/ports/Files.h"

namespace tessivox::fuzz {

/// A file to read with whatever contents the fuzzer came up with. Its first byte is none of them: it chooses how many
/// zeros follow, up to sizes that no memory holds. Reading more often than a sound reader does is a finding.
class FuzzedFile final : public base::File {
public:
    FuzzedFile(std::span<const std::byte> input, int mostReads) : readsLeft_(mostReads) {
        if (input.empty()) return;
        bytes_ = input.subspan(1);
        const auto choice = std::to_integer<unsigned>(input.front());
        size_ = bytes_.size() + (choice == 0 ? 0 : std::uint64_t{1} << choice % 63);
    }

    std::size_t readAt(std::uint64_t offset, std::span<std::byte> target) override {
        if (readsLeft_-- == 0) std::abort();
        if (offset >= size_) return 0;
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(target.size(), size_ - offset));
        std::memset(target.data(), 0, count);
        if (offset < bytes_.size()) {
            const auto rest = bytes_.subspan(static_cast<std::size_t>(offset));
            std::copy_n(rest.begin(), std::min(rest.size(), count), target.begin());
        }
        return count;
    }
    std::uint64_t size() const override { return size_; }

    void append(std::span<const std::byte>) override { std::abort(); }
    void writeAt(std::uint64_t, std::span<const std::byte>) override { std::abort(); }
    void truncate(std::uint64_t) override { std::abort(); }
    void sync() override { std::abort(); }
    bool tryLock(const std::filesystem::path&) override { return true; }
    void lock() override {}

private:
    std::span<const std::byte> bytes_;
    std::uint64_t size_ = 0;
    int readsLeft_;
};

}  // namespace tessivox::fuzz
