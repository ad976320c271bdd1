#include "platform/linux/posix/AddressFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "base/Text.h"
#include "platform/linux/posix/FileErrors.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {
namespace {

using Path = std::filesystem::path;

constexpr mode_t kOthers = 0077;
constexpr std::size_t kSecretDigits = 32;

base::Error refusal(std::string_view english, const Path& path) {
    return {"local server", EPERM, base::filled(base::localized(english), {path.string()})};
}

bool isOwn(const struct stat& info) { return info.st_uid == ::geteuid() && (info.st_mode & kOthers) == 0; }

void checkFolder(const Path& folder) {
    struct stat info {};
    if (::lstat(folder.c_str(), &info) < 0) throw fileError(errno, "open", folder);
    if (S_ISDIR(info.st_mode) && isOwn(info)) return;
    throw refusal(
        "The folder \"{0}\" is open to other users, so no server is looked for there: remove it, or make it yours with "
        "mode 0700.",
        folder);
}

void makeFolder(const Path& folder) {
    if (::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return;
    if (errno != ENOENT || !folder.has_relative_path()) throw fileError(errno, "make the folder", folder);
    makeFolder(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) < 0 && errno != EEXIST) throw fileError(errno, "make the folder", folder);
}

bool takeDigits(std::string_view& text, std::string_view allowed, std::size_t most) {
    const auto count = std::min(text.find_first_not_of(allowed), text.size());
    text.remove_prefix(count);
    return count > 0 && count <= most;
}

/// http://127.0.0.1:PORT/SECRET/api and nothing else: a request must not go to whatever someone wrote there.
bool isLocalAddress(std::string_view url) {
    constexpr std::string_view kStart = "http://127.0.0.1:";
    if (!url.starts_with(kStart)) return false;
    url.remove_prefix(kStart.size());
    int port = 0;
    std::from_chars(url.data(), url.data() + url.size(), port);
    if (!takeDigits(url, "0123456789", 5) || port < 1 || port > 65535 || !url.starts_with('/')) return false;
    url.remove_prefix(1);
    const auto before = url.size();
    return takeDigits(url, "0123456789abcdef", kSecretDigits) && before - url.size() == kSecretDigits && url == "/api";
}

}  // namespace

AddressFile AddressFile::open(const Path& path) {
    makeFolder(path.parent_path());
    checkFolder(path.parent_path());
    // O_NONBLOCK: a named pipe of that name must not hold us up.
    constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    Descriptor fd(retry([&] { return ::open(path.c_str(), kFlags, 0600); }));
    struct stat info {};
    const bool isThere = fd && ::fstat(fd.get(), &info) == 0;
    if (!isThere && errno != ELOOP) throw fileError(errno, "open", path);
    if (isThere && S_ISREG(info.st_mode) && isOwn(info)) return {std::move(fd), path};
    throw refusal("\"{0}\" is not a file of yours alone, so the server it names is not used: remove it.", path);
}

bool AddressFile::tryLock() const {
    if (retry([&] { return ::flock(fd_.get(), LOCK_EX | LOCK_NB); }) == 0) return true;
    if (errno != EWOULDBLOCK) throw fileError(errno, "lock", path_);
    return false;
}

std::optional<std::string> AddressFile::url() const {
    std::array<char, 1024> text;
    const auto size = retry([&] { return ::pread(fd_.get(), text.data(), text.size(), 0); });
    if (size < 0) throw fileError(errno, "read", path_);
    if (size == 0) return std::nullopt;
    const auto object = nlohmann::json::parse(text.data(), text.data() + size, nullptr, false);
    const auto url = object.is_object() ? object.find("url") : object.end();
    if (url != object.end() && url->is_string() && isLocalAddress(url->get_ref<const std::string&>())) return *url;
    throw refusal("\"{0}\" names no server of this computer: end tessivox-backend and remove the file.", path_);
}

void AddressFile::write(const std::string& url) const {
    const auto text = nlohmann::json{{"url", url}, {"pid", ::getpid()}}.dump() + "\n";
    clear();
    // At once, so that who reads it meanwhile finds nothing or all of it.
    const auto put = retry([&] { return ::pwrite(fd_.get(), text.data(), text.size(), 0); });
    if (put != static_cast<ssize_t>(text.size())) throw fileError(put < 0 ? errno : ENOSPC, "write", path_);
}

void AddressFile::clear() const {
    if (retry([&] { return ::ftruncate(fd_.get(), 0); }) < 0) throw fileError(errno, "write", path_);
}

}  // namespace tessivox::posix
