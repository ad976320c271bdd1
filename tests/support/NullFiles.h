#pragma once

#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>
#include <vector>

#include "base/ports/Files.h"

namespace tessivox::testing {

/// A disk that swallows what is written and remembers only which names exist, for recordings of many hours. One thread.
class NullFiles final : public base::Files {
public:
    std::unique_ptr<base::File> create(const Path& path) override {
        if (!names_.insert(path).second) throw base::FileError(EEXIST, "The name is taken.");
        return std::make_unique<Sink>();
    }
    std::unique_ptr<base::File> open(const Path&, base::FileAccess) override { return std::make_unique<Sink>(); }
    std::optional<base::FileStatus> status(const Path& path) const override {
        if (!names_.contains(path)) return std::nullopt;
        base::FileStatus file;
        file.isRegular = true;
        return file;
    }
    std::optional<base::FileStatus> linkStatus(const Path& path) const override { return status(path); }
    Path canonical(const Path& path) const override { return path; }
    std::uint32_t userID() const override { return 0; }
    std::vector<Path> list(const Path&) const override { return {names_.begin(), names_.end()}; }
    void makeFolders(const Path&) override {}
    void move(const Path& from, const Path& to) override { replace(from, to); }
    void replace(const Path& from, const Path& to) override {
        names_.erase(from);
        names_.insert(to);
    }
    void remove(const Path& path) override { names_.erase(path); }
    void syncFolder(const Path&) override {}
    std::uint64_t freeSpace(const Path&) const override { return UINT64_MAX; }
    std::optional<std::string> attribute(const Path&, const std::string&) const override { return std::nullopt; }
    void setAttribute(const Path&, const std::string&, std::string_view) override {}
    void removeAttribute(const Path&, const std::string&) override {}
    base::Subscription watch(const Path&, std::function<void()>) override { return {}; }

private:
    class Sink final : public base::File {
    public:
        void append(std::span<const std::byte> bytes) override { size_ += bytes.size(); }
        void writeAt(std::uint64_t offset, std::span<const std::byte> bytes) override {
            size_ = std::max(size_, offset + bytes.size());
        }
        std::size_t readAt(std::uint64_t, std::span<std::byte>) override { return 0; }
        void truncate(std::uint64_t size) override { size_ = size; }
        std::uint64_t size() const override { return size_; }
        void sync() override {}
        bool tryLock(const Path&) override { return true; }
        void lock() override {}

    private:
        std::uint64_t size_ = 0;
    };
    std::set<Path> names_;
};

}  // namespace tessivox::testing
