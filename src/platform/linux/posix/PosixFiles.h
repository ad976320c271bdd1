#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/ports/Files.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/FolderWatcher.h"

namespace tessivox::posix {

/// The machine's file system.
class PosixFiles final : public base::Files {
public:
    /// Watches are told through the loop.
    explicit PosixFiles(EventLoop& loop) : watcher_(loop) {}

    std::unique_ptr<base::File> create(const Path& path) override;
    std::unique_ptr<base::File> open(const Path& path, base::FileAccess access) override;
    std::optional<base::FileStatus> status(const Path& path) const override;
    std::optional<base::FileStatus> linkStatus(const Path& path) const override;
    Path canonical(const Path& path) const override;
    std::uint32_t userID() const override;
    std::vector<Path> list(const Path& folder) const override;
    void makeFolders(const Path& folder) override;
    void move(const Path& from, const Path& to) override;
    void replace(const Path& from, const Path& to) override;
    void remove(const Path& path) override;
    void syncFolder(const Path& folder) override;
    std::uint64_t freeSpace(const Path& path) const override;
    std::optional<std::string> attribute(const Path& path, const std::string& name) const override;
    void setAttribute(const Path& path, const std::string& name, std::string_view value) override;
    void removeAttribute(const Path& path, const std::string& name) override;
    base::Subscription watch(const Path& folder, std::function<void()> handler) override;

    /// The move of file systems that know no RENAME_NOREPLACE: a second name, then the first goes. Never replaces; a
    /// crash in between leaves both names.
    static void moveByLinking(const Path& from, const Path& to);

private:
    FolderWatcher watcher_;
};

}  // namespace tessivox::posix
