#pragma once

#include <functional>
#include <memory>

#include "base/ports/Files.h"

namespace tessivox::base {

/// A new file of mode 0600 that is removed with the object, unless it was moved to its place. Meanwhile it is locked,
/// where the file system can do that: whoever looks for what a killed program has left takes only files that are not.
/// One thread at a time; the files outlive it.
class TemporaryFile {
public:
    /// `makePath` gives another free path at each call. Throws FileError.
    TemporaryFile(Files& files, const std::function<Files::Path()>& makePath);
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile();

    const Files::Path& path() const { return path_; }
    File& file() { return *file_; }
    /// The file stays, as `target`. Throws FileError (EEXIST) if that name is taken.
    void moveTo(const Files::Path& target);

private:
    Files& files_;
    Files::Path path_;
    std::unique_ptr<File> file_;
    bool isTemporary_ = true;

    bool tryCreate(const Files::Path& path);
};

}  // namespace tessivox::base
