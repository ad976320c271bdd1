#pragma once

// The files and open files inside CrashingFiles; included by its source only.

#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

#include "support/CrashingFiles.h"
#include "support/SparseBytes.h"

namespace tessivox::testing {

inline base::FileError failure(int code, const char* verb, const base::Files::Path& path) {
    return {code, "Cannot " + std::string(verb) + " \"" + path.string() +
                      "\": " + std::generic_category().message(code) + "."};
}

inline int errnoOf(CrashingFiles::Fault fault) { return fault == CrashingFiles::Fault::ioError ? EIO : ENOSPC; }

struct CrashingFiles::Inode {
    std::uint64_t number = 0;
    bool isFolder = false;
    base::WallTime birth, modified;
    const Handle* lockedBy = nullptr;
    bool isChanged = false;  // a folder: since the watches were last told

    SparseBytes bytes, durableBytes;
    std::map<std::string, std::string> attributes, durableAttributes;
    std::map<std::string, Node> names, durableNames;
    Inode* parent = nullptr;  // the folder a change of this file shows in

    void sync() {
        durableBytes.resize(bytes.size());
        for (const auto index : bytes.dirty()) durableBytes.takeBlock(bytes, index);
        bytes.forgetDirty();
        durableAttributes = attributes;
    }
    void touch(base::WallTime time) {
        modified = time;
        if (isFolder) isChanged = true;
        if (parent) parent->isChanged = true;
    }
};

class CrashingFiles::Handle final : public base::File {
public:
    Handle(CrashingFiles& files, Node node, Path path, bool isWritable)
        : files_(files),
          node_(std::move(node)),
          path_(std::move(path)),
          isWritable_(isWritable),
          opened_(files.crashes_) {}
    ~Handle() override {
        const std::lock_guard guard(files_.mutex_);
        release();
    }

    void append(std::span<const std::byte> bytes) override {
        const auto guard = enter("write");
        write(node_->bytes.size(), bytes);
    }
    void writeAt(std::uint64_t offset, std::span<const std::byte> bytes) override {
        const auto guard = enter("write");
        write(offset, bytes);
    }
    std::size_t readAt(std::uint64_t offset, std::span<std::byte> bytes) override {
        const auto guard = enter("read");
        return node_->bytes.read(offset, bytes);
    }
    void truncate(std::uint64_t size) override {
        const auto guard = enter("resize");
        requireWritable("resize");
        files_.operate(path_, "resize", size > node_->bytes.size() ? Room::more : Room::same);
        node_->bytes.resize(size);
        node_->touch(files_.time_);
    }
    std::uint64_t size() const override {
        const auto guard = enter("read");
        return node_->bytes.size();
    }
    void sync() override {
        const auto guard = enter("write");
        if (const auto fault = files_.countOperation(path_, Room::same)) {
            if (*fault == Fault::ioError) node_->bytes.forgetDirty();
            throw failure(errnoOf(*fault), "write", path_);
        }
        node_->sync();
    }
    bool tryLock(const Path& path) override {
        const auto guard = enter("lock");
        if (node_->lockedBy && node_->lockedBy != this) return false;
        if (files_.find(path) != node_) return false;
        node_->lockedBy = this;
        return true;
    }
    void lock() override {
        auto guard = enter("lock");
        files_.unlocked_.wait(
            guard, [this] { return opened_ != files_.crashes_ || !node_->lockedBy || node_->lockedBy == this; });
        requireAlive("lock");
        node_->lockedBy = this;
    }

private:
    CrashingFiles& files_;
    Node node_;
    Path path_;
    bool isWritable_;
    std::uint64_t opened_;

    std::unique_lock<std::mutex> enter(const char* verb) const {
        std::unique_lock guard(files_.mutex_);
        requireAlive(verb);
        return guard;
    }
    void requireAlive(const char* verb) const {
        if (opened_ != files_.crashes_) throw failure(ESTALE, verb, path_);
    }
    void requireWritable(const char* verb) const {
        if (!isWritable_) throw failure(EBADF, verb, path_);
    }
    void write(std::uint64_t offset, std::span<const std::byte> bytes) {
        requireWritable("write");
        if (bytes.empty()) return;
        const bool grows = offset + bytes.size() > node_->bytes.size();
        const auto fault = files_.countOperation(path_, grows ? Room::more : Room::same);
        if (fault) bytes = bytes.first(*fault == Fault::shortWrite ? bytes.size() / 2 : 0);
        if (!bytes.empty()) {
            node_->bytes.write(offset, bytes);
            node_->touch(files_.time_);
        }
        if (fault) throw failure(errnoOf(*fault), "write", path_);
    }
    void release() {
        if (node_->lockedBy != this) return;
        node_->lockedBy = nullptr;
        files_.unlocked_.notify_all();
    }
};

}  // namespace tessivox::testing
