#pragma once

#include <condition_variable>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/ports/Files.h"

namespace tessivox::testing {

/// A disk in memory that fails and crashes on request. Contents are on it once the file is synced, names once their
/// folder is, attributes with the file's next sync, made folders at once. Open files keep their contents after
/// their name is gone. Any thread; one lock guards all. Operations that change or sync are counted from 1.
class CrashingFiles final : public base::Files {
public:
    /// What an operation runs into. A short write stores half of its bytes before the disk is full; other operations
    /// take it for noSpace. As on Linux, what a sync with ioError did not bring to the disk, no later sync brings there
    /// unless it is written again.
    enum class Fault { noSpace, ioError, shortWrite };
    /// What a crash leaves of that which was not synced: nothing; an arbitrary part (of what was appended a prefix, of
    /// overwritten blocks and of folders' names some); the files' sizes with zeros; everything, as when only the
    /// process is killed.
    enum class Unsynced { lost, prefix, zeros, kept };

    CrashingFiles();
    ~CrashingFiles() override;

    /// The machine goes down and comes up again: open files throw, locks are free.
    void crash(Unsynced unsynced = Unsynced::lost, std::uint64_t seed = 1);
    /// The n-th operation fails, once.
    void failAt(std::uint64_t n, Fault fault);
    /// From the n-th operation on, all below the folder fail: with ioError each, else those that need more room.
    void failFrom(std::uint64_t n, Fault fault, Path folder = "/");
    /// The power fails just before the n-th operation: it and all later ones fail and leave the disk as it is, until
    /// crash() says what the disk holds.
    void haltAt(std::uint64_t n);
    bool isHalted() const;
    /// No more faults.
    void heal();
    std::uint64_t operationCount() const;

    void setFreeSpace(std::uint64_t bytes);
    /// The time that new and changed files get from now on; it does not move by itself.
    void setTime(base::WallTime time);
    /// What another process did: the file stands there, on the disk, with its folders. Not counted, never fails.
    void put(const Path& path, std::string_view contents);
    /// Tells the watches of folders that changed since the last call, on this thread.
    void emitChanges();

    std::unique_ptr<base::File> create(const Path& path) override;
    std::unique_ptr<base::File> open(const Path& path, base::FileAccess access) override;
    std::optional<base::FileStatus> status(const Path& path) const override;
    /// It knows no links, and one user.
    std::optional<base::FileStatus> linkStatus(const Path& path) const override { return status(path); }
    Path canonical(const Path& path) const override;
    std::uint32_t userID() const override { return 0; }
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

private:
    struct Inode;
    class Handle;
    using Node = std::shared_ptr<Inode>;
    enum class Room { more, same };
    struct Place {
        Node folder;
        std::string name;
        Node node;  ///< absent if the name is free
    };
    struct LastingFault {
        std::uint64_t from;
        Fault fault;
        Path folder;
    };

    mutable std::mutex mutex_;
    std::condition_variable unlocked_;
    Node root_;
    std::uint64_t lastInode_ = 0;
    std::uint64_t crashes_ = 0;
    std::uint64_t operations_ = 0;
    std::map<std::uint64_t, Fault> faults_;
    std::vector<LastingFault> lastingFaults_;
    std::uint64_t haltAt_ = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t freeSpace_ = std::uint64_t{1} << 40;
    base::WallTime time_{std::chrono::hours(24 * 365 * 55)};
    std::map<Path, base::Signal<>> watches_;

    Node makeNode(bool isFolder);
    Node find(const Path& path) const;
    Node existing(const Path& path, const char* verb) const;
    Place placeOf(const Path& path, const char* verb) const;
    void ensureFolders(const Path& folder);
    void rename(const Path& from, const Path& to, bool mayReplace);
    std::optional<Fault> countOperation(const Path& path, Room room);
    void operate(const Path& path, const char* verb, Room room);
    void settle(Inode& node, Unsynced unsynced, std::mt19937_64& random);
};

}  // namespace tessivox::testing
