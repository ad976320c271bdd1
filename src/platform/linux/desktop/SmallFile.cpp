#include "platform/linux/desktop/SmallFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tessivox::desktop {
namespace {

constexpr int kReading = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

struct File {
    int descriptor;

    explicit File(int opened) : descriptor(opened) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (descriptor >= 0) ::close(descriptor);
    }
};

std::optional<std::string> readWhole(const File& file, std::size_t limit) {
    struct stat status {};
    if (file.descriptor < 0 || ::fstat(file.descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    // Files of /proc say that they are empty, so reading shows the size.
    std::string bytes(limit + 1, '\0');
    std::size_t size = 0;
    while (size < bytes.size()) {
        const auto count = ::read(file.descriptor, bytes.data() + size, bytes.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    if (size > limit) return std::nullopt;
    bytes.resize(size);
    bytes.shrink_to_fit();
    return bytes;
}

}  // namespace

std::optional<std::string> readSmallFile(const std::filesystem::path& path, std::size_t limit) {
    return readWhole(File(::open(path.c_str(), kReading)), limit);
}

std::optional<std::string> readSmallFileIn(const std::filesystem::path& folder, const char* name, std::size_t limit) {
    const File root(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (root.descriptor < 0) return std::nullopt;
    return readWhole(File(::openat(root.descriptor, name, kReading | O_NOFOLLOW)), limit);
}

}  // namespace tessivox::desktop
