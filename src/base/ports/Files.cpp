#include "base/ports/Files.h"

#include <cerrno>

namespace tessivox::base {

bool File::cloneFrom(const File&) { return false; }

bool Files::removeIfPossible(const Path& path) noexcept {
    try {
        remove(path);
        return true;
    } catch (const FileError&) {
        return false;
    }
}

bool Files::removeIfUnused(const Path& path) noexcept {
    try {
        const auto lock = open(path, FileAccess::update);
        if (!lock->tryLock(path)) return false;
        remove(path);
        return true;
    } catch (const FileError&) {
        return false;
    }
}

std::string Files::readAll(const Path& path, std::size_t limit) {
    const auto file = open(path, FileAccess::read);
    const auto size = file->size();
    if (size > limit) throw FileError(EFBIG, "\"" + path.string() + "\" is too large to read.");
    std::string contents(size, '\0');
    contents.resize(file->readAt(0, std::as_writable_bytes(std::span(contents))));
    return contents;
}

}  // namespace tessivox::base
