#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "base/Error.h"
#include "platform/linux/posix/Descriptor.h"

namespace tessivox::posix {

/// The file that says where this user's own server is: {"url": "http://127.0.0.1:PORT/SECRET/api", "pid": N}, the pid
/// being its starter's. Whoever holds the lock on it is the server, or is about to start it. The lock belongs to the
/// open file, so a process that inherits the descriptor holds it too.
class AddressFile {
public:
    /// Opens it, or makes it with mode 0600 in a folder that only the user can enter. Throws base::Error, with a
    /// sentence that says what to do, if another user could have made or changed it.
    static AddressFile open(const std::filesystem::path& path);

    /// Does not wait; false if someone holds the lock.
    bool tryLock() const;
    /// Absent while its starter has not written it. Throws base::Error if it is something else than such an address.
    std::optional<std::string> url() const;
    /// With the lock held. Throws base::Error.
    void write(const std::string& url) const;
    /// With the lock held: whoever waits for an address does not take a former one for it.
    void clear() const;
    int fd() const noexcept { return fd_.get(); }

private:
    AddressFile(Descriptor fd, std::filesystem::path path) : fd_(std::move(fd)), path_(std::move(path)) {}

    Descriptor fd_;
    std::filesystem::path path_;
};

}  // namespace tessivox::posix
