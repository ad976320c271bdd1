#include "platform/linux/posix/FileErrors.h"

#include <cerrno>
#include <string>
#include <system_error>

namespace tessivox::posix {
namespace {

std::string reason(int code) {
    switch (code) {
        case ENOSPC:
            return "the disk is full";
        case EDQUOT:
            return "your disk quota is used up";
        case EACCES:
        case EPERM:
            return "you do not have permission";
        case EROFS:
            return "the file system is read-only";
        case EIO:
            return "the disk reported an error";
        case ENOENT:
            return "it does not exist";
        case EEXIST:
            return "a file of that name already exists";
        case EISDIR:
            return "it is a folder";
        case ENOTDIR:
            return "part of the path is not a folder";
        case ENAMETOOLONG:
            return "the name is too long";
        case EMFILE:
        case ENFILE:
            return "too many files are open";
        case EXDEV:
            return "the two places are on different disks";
        case EFBIG:
            return "the file would be too large for this disk";
        case EINVAL:
            return "this disk does not take such a name, or cannot do that safely";
        case ENOTSUP:
            return "the file system does not support it";
        default:
            return std::generic_category().message(code);
    }
}

std::string quoted(const std::filesystem::path& path) { return "\"" + path.string() + "\""; }

}  // namespace

base::FileError fileError(int code, std::string_view verb, const std::filesystem::path& path) {
    return {code, "Cannot " + std::string(verb) + " " + quoted(path) + ": " + reason(code) + "."};
}

base::FileError fileError(int code, std::string_view verb, const std::filesystem::path& from,
                          const std::filesystem::path& to) {
    return {code, "Cannot " + std::string(verb) + " " + quoted(from) + " to " + quoted(to) + ": " + reason(code) + "."};
}

}  // namespace tessivox::posix
