#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/SharedDocument.h"
#include "base/ports/Files.h"
#include "library/AttributeDocument.h"

namespace tessivox::library {

/// The attributes of one folder's files where the file system keeps none: a hidden file in that folder. Files are given
/// by their names there. Reading never throws; changes throw FileError. A file that cannot be understood reads as empty
/// and is kept aside at the next change. Several processes may change it at once. One thread.
class AttributeFile {
public:
    static constexpr std::string_view kName = ".tessivox-attributes.json";

    AttributeFile(base::Files& files, const std::filesystem::path& folder);

    const std::filesystem::path& folder() const { return folder_; }

    std::optional<std::string> value(const std::string& file, const std::string& attribute);
    /// Without a value the attribute is removed.
    void set(const std::string& file, const std::string& attribute, std::optional<std::string_view> value);
    /// After a file was renamed.
    void renamed(const std::string& from, const std::string& to);
    /// For a file that is gone, but once was the one with this identity.
    void forget(const std::string& file, const FileIdentity& identity);

    std::optional<FileIdentity> identityOf(const std::string& file) const;

private:
    base::Files& files_;
    std::filesystem::path folder_;
    base::SharedDocument stored_;
    AttributeDocument known_;
    std::optional<base::FileStatus> knownStatus_;  ///< of the file that known_ was read from

    void refresh();
    AttributeDocument::Reading read();
    template <typename Change>
    void change(Change change);
    void write(AttributeDocument& document);
};

}  // namespace tessivox::library
