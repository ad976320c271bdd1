#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/ports/Files.h"
#include "library/AttributeFile.h"

namespace tessivox::library {

inline const std::string kTitleAttribute = "user.com.tessivox.title";
inline const std::string kGistAttribute = "user.com.tessivox.gist";

/// Titles and gists of recordings: extended attributes of the main file, or entries of a hidden file beside it where
/// the file system has no attributes. Nothing here throws; what fails is logged. One thread.
class RecordingMetadata {
public:
    explicit RecordingMetadata(base::Files& files) : files_(files) {}

    /// Trimmed UTF-8; absent if there is none, or nothing but white space.
    std::optional<std::string> read(const std::filesystem::path& url, const std::string& attribute);
    /// Stores the trimmed value; removes the attribute if nothing remains. A file that is not there is left alone.
    void write(const std::filesystem::path& url, const std::optional<std::string>& value, const std::string& attribute);
    /// After the file was renamed. Attributes proper went with it.
    void moved(const std::filesystem::path& from, const std::filesystem::path& to);

    /// What forget() must know, asked for while the file is still there.
    std::optional<FileIdentity> identityOf(const std::filesystem::path& url);
    /// After the file went to the Trash.
    void forget(const std::filesystem::path& url, const std::optional<FileIdentity>& identity);

private:
    base::Files& files_;
    std::optional<AttributeFile> fallback_;  ///< of the folder last asked for

    AttributeFile& fallbackFor(const std::filesystem::path& url);
    std::optional<std::string> stored(const std::filesystem::path& url, const std::string& attribute);
    void store(const std::filesystem::path& url, const std::string& attribute, std::string_view value);
    void remove(const std::filesystem::path& url, const std::string& attribute);
};

}  // namespace tessivox::library
