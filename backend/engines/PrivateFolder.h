#pragma once

#include <filesystem>

namespace tessivox::backend {

/// A new folder of mode 0700 that goes, with all that is in it, when the object goes.
class PrivateFolder {
public:
    /// Named "tessivox-run-XXXXXX" in that folder. Throws base::FileError.
    explicit PrivateFolder(const std::filesystem::path& parent);
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder();

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace tessivox::backend
