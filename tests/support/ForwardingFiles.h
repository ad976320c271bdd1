#pragma once

#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "base/ports/Files.h"

namespace tessivox::testing {

/// Hands everything on to other files; what is to be different is overridden.
class ForwardingFiles : public base::Files {
public:
    explicit ForwardingFiles(base::Files& inner) : inner_(inner) {}

    std::unique_ptr<base::File> create(const Path& path) override { return inner_.create(path); }
    std::unique_ptr<base::File> open(const Path& path, base::FileAccess access) override {
        return inner_.open(path, access);
    }
    std::optional<base::FileStatus> status(const Path& path) const override { return inner_.status(path); }
    std::optional<base::FileStatus> linkStatus(const Path& path) const override { return inner_.linkStatus(path); }
    Path canonical(const Path& path) const override { return inner_.canonical(path); }
    std::uint32_t userID() const override { return inner_.userID(); }
    std::vector<Path> list(const Path& folder) const override { return inner_.list(folder); }
    void makeFolders(const Path& folder) override { inner_.makeFolders(folder); }
    void move(const Path& from, const Path& to) override { inner_.move(from, to); }
    void replace(const Path& from, const Path& to) override { inner_.replace(from, to); }
    void remove(const Path& path) override { inner_.remove(path); }
    void syncFolder(const Path& folder) override { inner_.syncFolder(folder); }
    std::uint64_t freeSpace(const Path& path) const override { return inner_.freeSpace(path); }
    std::optional<std::string> attribute(const Path& path, const std::string& name) const override {
        return inner_.attribute(path, name);
    }
    void setAttribute(const Path& path, const std::string& name, std::string_view value) override {
        inner_.setAttribute(path, name, value);
    }
    void removeAttribute(const Path& path, const std::string& name) override { inner_.removeAttribute(path, name); }
    base::Subscription watch(const Path& folder, std::function<void()> handler) override {
        return inner_.watch(folder, std::move(handler));
    }

private:
    base::Files& inner_;
};

/// A file system without extended attributes.
class FilesWithoutAttributes final : public ForwardingFiles {
public:
    using ForwardingFiles::ForwardingFiles;
    std::optional<std::string> attribute(const Path&, const std::string&) const override { return std::nullopt; }
    void setAttribute(const Path&, const std::string&, std::string_view) override {
        throw base::FileError(ENOTSUP, "There are no attributes here.");
    }
    void removeAttribute(const Path&, const std::string&) override {}
};

}  // namespace tessivox::testing
