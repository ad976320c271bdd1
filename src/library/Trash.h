#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/Error.h"
#include "base/Scheduler.h"
#include "base/ports/Files.h"
#include "base/ports/LocalTime.h"

namespace tessivox::library {

/// A file for which there is no trash folder. domain() is "trash".
class TrashError : public base::Error {
public:
    explicit TrashError(std::string description) : Error("trash", 1, std::move(description)) {}
};

/// The desktop's Trash (freedesktop.org Trash specification 1.0). Nothing is ever deleted or copied: a file goes to the
/// user's trash folder on its own disk, or stays where it is.
class Trash {
public:
    /// The longest name in a trash folder, in bytes: the name of its description is longer.
    static constexpr std::size_t kLongestName = 240;

    /// `dataHome` is the XDG data home, whose "Trash" takes what lies on the same disk; it need not exist.
    Trash(base::Files& files, const base::LocalTime& localTime, const base::Scheduler& clock,
          const std::filesystem::path& dataHome)
        : files_(files), localTime_(localTime), clock_(clock), home_(dataHome / "Trash") {}

    /// Gives the file's new place. Throws TrashError or FileError, and then nothing has changed.
    std::filesystem::path moveToTrash(const std::filesystem::path& file);

    /// The n-th name to try for a file in the Trash, from 1: cut to kLongestName, not inside a UTF-8 sequence, with
    /// number and extension kept.
    static std::string candidateName(std::string_view name, int number);

private:
    using Path = std::filesystem::path;
    struct Item;
    struct Folder;

    base::Files& files_;
    const base::LocalTime& localTime_;
    const base::Scheduler& clock_;
    Path home_;

    Item itemOf(const Path& file) const;
    bool isOnDevice(const Path& path, std::uint64_t device) const;
    Path topFolder(const Item& item) const;
    std::optional<Folder> homeFolder(const Item& item);
    std::optional<Folder> sharedFolder(const Path& top);
    std::optional<Folder> ownFolder(const Path& top);
    void makeFolders(const Path& folder);
    bool prepare(const Path& folder);
    bool isOwn(const Path& folder) const;
    std::optional<Path> put(const Item& item, const Folder& folder);
    std::optional<Path> tryName(const Item& item, const Folder& folder, const std::string& name);
    std::string description(const Item& item, const Folder& folder) const;
};

}  // namespace tessivox::library
