#include "platform/linux/posix/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/FileErrors.h"
#include "platform/linux/posix/PosixFile.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {
namespace {

using Path = base::Files::Path;

constexpr mode_t kFileMode = 0600;
constexpr mode_t kFolderMode = 0700;

std::unique_ptr<base::File> openWith(const Path& path, int flags, const char* verb) {
    // O_NONBLOCK changes nothing for files, but a named pipe of that name must not hold us up.
    Descriptor fd(retry([&] { return ::open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, kFileMode); }));
    if (!fd) throw fileError(errno, verb, path);
    return std::make_unique<PosixFile>(std::move(fd), path);
}

base::WallTime toWallTime(const statx_timestamp& time) {
    return base::WallTime(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

base::WallTime birthOf(const struct statx& info) {
    if (info.stx_mask & STATX_BTIME) return toWallTime(info.stx_btime);
    return std::min(toWallTime(info.stx_mtime), toWallTime(info.stx_ctime));
}

std::optional<base::FileStatus> statusOf(const Path& path, int flags) {
    struct statx info {};
    if (::statx(AT_FDCWD, path.c_str(), flags | AT_STATX_SYNC_AS_STAT, STATX_BASIC_STATS | STATX_BTIME, &info) < 0)
        return {};
    base::FileStatus status;
    status.size = info.stx_size;
    status.device = ::makedev(info.stx_dev_major, info.stx_dev_minor);
    status.inode = info.stx_ino;
    status.owner = info.stx_uid;
    status.mode = info.stx_mode & 07777U;
    status.isFolder = S_ISDIR(info.stx_mode);
    status.isRegular = S_ISREG(info.stx_mode);
    status.modified = toWallTime(info.stx_mtime);
    status.birth = birthOf(info);
    return status;
}

bool isFolder(const Path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

Path parentOf(const Path& path) {
    const auto parent = path.parent_path();
    return parent.empty() ? Path(".") : parent;
}

struct FreeMemory {
    void operator()(char* memory) const { std::free(memory); }
};

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

bool isUnsupported(int code) { return code == EINVAL || code == ENOSYS; }

}  // namespace

std::unique_ptr<base::File> PosixFiles::create(const Path& path) {
    return openWith(path, O_RDWR | O_CREAT | O_EXCL, "create");
}

std::unique_ptr<base::File> PosixFiles::open(const Path& path, base::FileAccess access) {
    return openWith(path, access == base::FileAccess::read ? O_RDONLY : O_RDWR, "open");
}

std::optional<base::FileStatus> PosixFiles::status(const Path& path) const { return statusOf(path, 0); }

std::optional<base::FileStatus> PosixFiles::linkStatus(const Path& path) const {
    return statusOf(path, AT_SYMLINK_NOFOLLOW);
}

std::filesystem::path PosixFiles::canonical(const Path& path) const {
    const std::unique_ptr<char, FreeMemory> found(::realpath(path.c_str(), nullptr));
    if (!found) throw fileError(errno, "find", path);
    return Path(found.get());
}

std::uint32_t PosixFiles::userID() const { return ::geteuid(); }

std::vector<Path> PosixFiles::list(const Path& folder) const {
    const std::unique_ptr<DIR, CloseFolder> open(::opendir(folder.c_str()));
    if (!open) throw fileError(errno, "list", folder);
    std::vector<Path> names;
    errno = 0;
    while (const dirent* entry = ::readdir(open.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
        errno = 0;
    }
    if (errno != 0) throw fileError(errno, "list", folder);
    return names;
}

void PosixFiles::makeFolders(const Path& folder) {
    if (isFolder(folder)) return;
    if (!folder.has_filename() && folder.has_relative_path()) return makeFolders(folder.parent_path());
    const auto parent = parentOf(folder);
    if (parent != folder) makeFolders(parent);
    if (::mkdir(folder.c_str(), kFolderMode) == 0) {
        syncFolder(parent);
    } else if (errno != EEXIST || !isFolder(folder)) {
        throw fileError(errno, "make the folder", folder);
    }
}

void PosixFiles::move(const Path& from, const Path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return;
    if (!isUnsupported(errno)) throw fileError(errno, "move", from, to);
    moveByLinking(from, to);
}

void PosixFiles::moveByLinking(const Path& from, const Path& to) {
    if (::link(from.c_str(), to.c_str()) < 0) {
        // A file system without second names says EPERM; then what stopped the renaming still stands.
        throw fileError(errno == EPERM ? EINVAL : errno, "move", from, to);
    }
    if (::unlink(from.c_str()) == 0) return;
    const int code = errno;
    ::unlink(to.c_str());
    throw fileError(code, "move", from, to);
}

void PosixFiles::replace(const Path& from, const Path& to) {
    if (::rename(from.c_str(), to.c_str()) < 0) throw fileError(errno, "move", from, to);
}

void PosixFiles::remove(const Path& path) {
    if (::unlink(path.c_str()) < 0) throw fileError(errno, "remove", path);
}

void PosixFiles::syncFolder(const Path& folder) {
    const Descriptor fd(retry([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!fd) throw fileError(errno, "write to", folder);
    // EINVAL: this file system keeps its folders without being asked.
    if (retry([&] { return ::fsync(fd.get()); }) < 0 && errno != EINVAL) throw fileError(errno, "write to", folder);
}

std::uint64_t PosixFiles::freeSpace(const Path& path) const {
    struct statvfs info {};
    Path place = path.empty() ? Path(".") : path;
    while (retry([&] { return ::statvfs(place.c_str(), &info); }) < 0) {
        // What is not there yet will stand where its folder is.
        if (errno != ENOENT || parentOf(place) == place) throw fileError(errno, "find the free space of", path);
        place = parentOf(place);
    }
    return std::uint64_t{info.f_bavail} * info.f_frsize;
}

std::optional<std::string> PosixFiles::attribute(const Path& path, const std::string& name) const {
    while (true) {
        const auto size = ::getxattr(path.c_str(), name.c_str(), nullptr, 0);
        std::string value(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
        const auto got = size > 0 ? ::getxattr(path.c_str(), name.c_str(), value.data(), value.size()) : size;
        if (got >= 0) {
            value.resize(static_cast<std::size_t>(got));
            return value;
        }
        if (errno == ENODATA || errno == ENOTSUP) return std::nullopt;
        if (errno != ERANGE) throw fileError(errno, "read an attribute of", path);
    }
}

void PosixFiles::setAttribute(const Path& path, const std::string& name, std::string_view value) {
    if (::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) < 0) {
        throw fileError(errno, "set an attribute of", path);
    }
}

void PosixFiles::removeAttribute(const Path& path, const std::string& name) {
    if (::removexattr(path.c_str(), name.c_str()) == 0 || errno == ENODATA || errno == ENOTSUP) return;
    throw fileError(errno, "remove an attribute of", path);
}

base::Subscription PosixFiles::watch(const Path& folder, std::function<void()> handler) {
    return watcher_.watch(folder, std::move(handler));
}

}  // namespace tessivox::posix
