#include "backend/engines/PrivateFolder.h"

#include <stdlib.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "platform/linux/posix/FileErrors.h"

namespace tessivox::backend {

PrivateFolder::PrivateFolder(const std::filesystem::path& parent) {
    auto name = (parent / "tessivox-run-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw posix::fileError(errno, "create", name);
    path_ = name;
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace tessivox::backend
