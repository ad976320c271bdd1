#pragma once

#include <memory>
#include <string_view>

#include "base/ports/Files.h"

namespace tessivox::base {

/// A small text file that several processes change: who changes it holds a lock beside it, reads it again, and puts a
/// new file in its place that is already on the disk. Operations throw FileError.
class SharedDocument {
public:
    SharedDocument(Files& files, Files::Path file) : files_(files), file_(std::move(file)) {}

    const Files::Path& path() const { return file_; }

    /// Waits for whoever changes the document now, unless the file system has no locks. Makes its folder if that is
    /// missing. The lock ends with the file that is returned.
    [[nodiscard]] std::unique_ptr<File> lock();
    /// Puts the text in the file's place. With the lock held.
    void replace(std::string_view text);
    /// Moves a damaged file out of the way and gives its new name. With the lock held.
    Files::Path keepAside();

private:
    Files& files_;
    Files::Path file_;

    Files::Path sibling(std::string_view prefix, std::string_view suffix) const;
};

}  // namespace tessivox::base
