#include "library/Trash.h"

#include <algorithm>
#include <cerrno>
#include <span>

#include "base/Log.h"
#include "base/ShortenedText.h"
#include "base/Text.h"

namespace tessivox::library {
namespace {

using base::paddedNumber;

constexpr unsigned kSticky = 01000;
/// More files of one name than this in the Trash mean that something else is wrong.
constexpr int kMaxNumber = 100000;
/// What is longer than this after a dot is no extension.
constexpr std::size_t kLongestExtension = 16;

std::string isoTime(const base::CivilTime& time) {
    return paddedNumber(time.year, 4) + "-" + paddedNumber(time.month, 2) + "-" + paddedNumber(time.day, 2) + "T" +
           paddedNumber(time.hour, 2) + ":" + paddedNumber(time.minute, 2) + ":" + paddedNumber(time.second, 2);
}

}  // namespace

/// A file on its way to the Trash.
struct Trash::Item {
    Path path;  ///< without links, except for the file itself
    std::uint64_t device = 0;
};

/// A trash folder that is ready for use.
struct Trash::Folder {
    Path path;
    std::optional<Path> top;  ///< what paths in it are relative to
};

std::filesystem::path Trash::moveToTrash(const Path& file) {
    const auto item = itemOf(file);
    if (const auto folder = homeFolder(item)) {
        if (auto placed = put(item, *folder)) return *placed;
    }
    const auto top = topFolder(item);
    if (const auto folder = sharedFolder(top)) {
        if (auto placed = put(item, *folder)) return *placed;
    }
    if (const auto folder = ownFolder(top)) {
        if (auto placed = put(item, *folder)) return *placed;
    }
    throw TrashError(
        base::filled(base::localized("\"{0}\" cannot be moved to the Trash, because its disk has no trash folder that "
                                     "you can write to. Delete the file yourself, or move it to another disk first."),
                     {file.filename().string()}));
}

Trash::Item Trash::itemOf(const Path& file) const {
    const auto parent = file.parent_path();
    Item item;
    item.path = files_.canonical(parent.empty() ? Path(".") : parent) / file.filename();
    const auto status = files_.linkStatus(item.path);
    if (!status)
        throw base::FileError(ENOENT, "Cannot move \"" + file.string() + "\" to the Trash: it does not exist.");
    item.device = status->device;
    return item;
}

bool Trash::isOnDevice(const Path& path, std::uint64_t device) const {
    const auto status = files_.status(path);
    return status && status->device == device;
}

std::filesystem::path Trash::topFolder(const Item& item) const {
    auto top = item.path.parent_path();
    while (top.has_relative_path() && isOnDevice(top.parent_path(), item.device)) top = top.parent_path();
    return top;
}

std::optional<Trash::Folder> Trash::homeFolder(const Item& item) {
    auto place = home_;
    while (!files_.exists(place) && place.has_relative_path()) place = place.parent_path();
    if (!home_.is_absolute() || !isOnDevice(place, item.device)) return std::nullopt;
    makeFolders(home_);
    return Folder{home_, std::nullopt};
}

/// The folder that an administrator has made for all users; one that anyone could have planted is not trusted.
std::optional<Trash::Folder> Trash::sharedFolder(const Path& top) {
    const auto shared = top / ".Trash";
    const auto status = files_.linkStatus(shared);
    if (!status || !status->isFolder || (status->mode & kSticky) == 0) return std::nullopt;
    const auto folder = shared / std::to_string(files_.userID());
    if (!isOwn(folder) || !prepare(folder)) return std::nullopt;
    return Folder{folder, top};
}

std::optional<Trash::Folder> Trash::ownFolder(const Path& top) {
    const auto folder = top / (".Trash-" + std::to_string(files_.userID()));
    if (!isOwn(folder) || !prepare(folder)) return std::nullopt;
    return Folder{folder, top};
}

/// Whether it is a folder of this user, and no link, or nothing yet.
bool Trash::isOwn(const Path& folder) const {
    const auto status = files_.linkStatus(folder);
    return !status || (status->isFolder && status->owner == files_.userID());
}

void Trash::makeFolders(const Path& folder) {
    files_.makeFolders(folder / "info");
    files_.makeFolders(folder / "files");
}

bool Trash::prepare(const Path& folder) {
    try {
        makeFolders(folder);
        return isOwn(folder);
    } catch (const base::FileError& error) {
        base::log("[Trash] " + error.description());
        return false;
    }
}

/// Absent if the folder turns out to be on another disk.
std::optional<std::filesystem::path> Trash::put(const Item& item, const Folder& folder) {
    const auto original = item.path.filename().native();
    for (int number = 1; number <= kMaxNumber; ++number) {
        try {
            return tryName(item, folder, candidateName(original, number));
        } catch (const base::FileError& error) {
            if (error.code() == EXDEV) return std::nullopt;
            if (error.code() != EEXIST) throw;
        }
    }
    throw TrashError(base::localized("The Trash holds too many files of that name. Empty it, then try again."));
}

/// The description goes first, so that nothing is ever in the Trash without one; with the file, it is on the disk
/// before the file's old name is gone.
std::optional<std::filesystem::path> Trash::tryName(const Item& item, const Folder& folder, const std::string& name) {
    const auto info = folder.path / "info" / (name + ".trashinfo");
    const auto target = folder.path / "files" / name;
    const auto file = files_.create(info);
    try {
        const auto text = description(item, folder);
        file->append(std::as_bytes(std::span(text)));
        file->sync();
        files_.syncFolder(info.parent_path());
        files_.move(item.path, target);
    } catch (const base::FileError&) {
        files_.removeIfPossible(info);
        throw;
    }
    try {
        files_.syncFolder(target.parent_path());
        files_.syncFolder(item.path.parent_path());
    } catch (const base::FileError& error) {
        base::log("[Trash] " + error.description());
    }
    return target;
}

std::string Trash::description(const Item& item, const Folder& folder) const {
    const auto path = folder.top ? item.path.lexically_relative(*folder.top) : item.path;
    return "[Trash Info]\nPath=" + base::percentEncoded(path.native()) +
           "\nDeletionDate=" + isoTime(localTime_.civil(clock_.wallNow())) + "\n";
}

std::string Trash::candidateName(std::string_view name, int number) {
    const auto dot = name.rfind('.');
    const bool hasExtension = dot != std::string_view::npos && dot > 0 && name.size() - dot <= kLongestExtension;
    const auto extension = hasExtension ? name.substr(dot) : std::string_view();
    const auto counter = number > 1 ? " " + std::to_string(number) : std::string();
    const auto stem = name.substr(0, name.size() - extension.size());
    const auto room = kLongestName - extension.size() - counter.size();
    return std::string(base::shortened(stem, room)) + counter + std::string(extension);
}

}  // namespace tessivox::library
