#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Error.h"
#include "base/Signal.h"
#include "base/Units.h"

namespace tessivox::base {

/// A file operation that failed. domain() is "posix", code() the errno value; the description is a sentence with the
/// path.
class FileError : public Error {
public:
    FileError(int code, std::string description) : Error("posix", code, std::move(description)) {}
};

struct FileStatus {
    std::uint64_t size = 0;  ///< bytes
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint32_t owner = 0;  ///< user id
    unsigned mode = 0;        ///< permission bits, with the sticky bit 01000
    bool isFolder = false;
    bool isRegular = false;
    WallTime modified;
    /// Birth time, or the earliest time known where the file system keeps none.
    WallTime birth;
};

/// An open file. Destroying it closes it. Used by one thread at a time. Every operation throws FileError on failure.
class File {
public:
    virtual ~File() = default;

    /// Writes all bytes at the end of the file. After a failure, some of them may stand there.
    virtual void append(std::span<const std::byte> bytes) = 0;
    /// Writes all bytes at an offset; a gap before it reads as zeros. After a failure, some of them may stand there.
    virtual void writeAt(std::uint64_t offset, std::span<const std::byte> bytes) = 0;
    /// Fills the span as far as the file reaches; returns the number of bytes read, 0 at its end.
    virtual std::size_t readAt(std::uint64_t offset, std::span<std::byte> bytes) = 0;
    /// Takes over the contents of another file at once, sharing its room on the disk, in place of its own; false, and
    /// nothing is changed, if the file system cannot do that.
    virtual bool cloneFrom(const File& source);
    virtual void truncate(std::uint64_t size) = 0;
    virtual std::uint64_t size() const = 0;
    /// Returns when contents and size are on the disk.
    virtual void sync() = 0;
    /// Takes an exclusive advisory lock on the open file without waiting; false if another open file holds one. It ends
    /// when the file is closed. False too if the file's path, `path`, meanwhile names another file.
    virtual bool tryLock(const std::filesystem::path& path) = 0;
    /// Like tryLock, but waits for the other holder. For locks that are held for moments only.
    virtual void lock() = 0;
};

/// How open() opens: for reading, or for reading and writing.
enum class FileAccess { read, update };

/// The file system, as far as durability needs it. Paths are byte-exact. Any thread. Operations throw FileError on
/// failure unless they say otherwise.
class Files {
public:
    using Path = std::filesystem::path;
    virtual ~Files() = default;

    /// Makes a new file of mode 0600 for update; fails (EEXIST) if anything has that name.
    virtual std::unique_ptr<File> create(const Path& path) = 0;
    virtual std::unique_ptr<File> open(const Path& path, FileAccess access) = 0;
    /// Absent if nothing is there or it cannot be looked at. Follows symbolic links.
    virtual std::optional<FileStatus> status(const Path& path) const = 0;
    /// Like status(), but of a symbolic link itself, which is neither folder nor regular.
    virtual std::optional<FileStatus> linkStatus(const Path& path) const = 0;
    /// The absolute path without symbolic links of something that is there.
    virtual Path canonical(const Path& path) const = 0;
    /// Whose files this process makes.
    virtual std::uint32_t userID() const = 0;
    /// The names in a folder, without "." and "..", in no particular order.
    virtual std::vector<Path> list(const Path& folder) const = 0;
    /// Makes the folder and its missing parents, mode 0700; their names are on the disk then. One that exists is
    /// fine.
    virtual void makeFolders(const Path& folder) = 0;
    /// Renames; fails (EEXIST) if the target's name is taken, (EXDEV) across file systems.
    virtual void move(const Path& from, const Path& to) = 0;
    /// Renames, atomically taking the place of a file that is there.
    virtual void replace(const Path& from, const Path& to) = 0;
    /// Removes a file.
    virtual void remove(const Path& path) = 0;
    /// Returns when the folder's names are on the disk.
    virtual void syncFolder(const Path& folder) = 0;
    /// Bytes that this user can still write where the path is.
    virtual std::uint64_t freeSpace(const Path& path) const = 0;

    /// Extended attributes of a file, under their full names ("user.…"). Absent if there is none.
    virtual std::optional<std::string> attribute(const Path& path, const std::string& name) const = 0;
    virtual void setAttribute(const Path& path, const std::string& name, std::string_view value) = 0;
    virtual void removeAttribute(const Path& path, const std::string& name) = 0;

    /// Calls the handler on the main thread after names in the folder, or contents of its files, have changed. Main
    /// thread.
    virtual Subscription watch(const Path& folder, std::function<void()> handler) = 0;

    /// For clean-up whose failure is no one's concern: true if the file is gone.
    bool removeIfPossible(const Path& path) noexcept;
    /// The same, unless somebody holds the file's lock: for what a killed program has left.
    bool removeIfUnused(const Path& path) noexcept;
    /// Whether anything has that name.
    bool exists(const Path& path) const { return status(path).has_value(); }
    /// The whole contents of a file of at most `limit` bytes; a longer one is an error (EFBIG).
    std::string readAll(const Path& path, std::size_t limit);
};

}  // namespace tessivox::base
