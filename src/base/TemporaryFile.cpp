#include "base/TemporaryFile.h"

#include <cerrno>

#include "base/Text.h"

namespace tessivox::base {
namespace {

constexpr int kAttempts = 3;

}  // namespace

TemporaryFile::TemporaryFile(Files& files, const std::function<Files::Path()>& makePath) : files_(files) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (tryCreate(makePath())) return;
    }
    throw FileError(EWOULDBLOCK, localized("The temporary file is in use by another program; try again."));
}

/// False if somebody who looks for leftovers took the file before it was locked.
bool TemporaryFile::tryCreate(const Files::Path& path) {
    auto file = files_.create(path);
    try {
        if (!file->tryLock(path)) return false;
    } catch (const FileError&) {
        // Some network folders have no locks; then nobody gets one to remove the file either.
    }
    path_ = path;
    file_ = std::move(file);
    return true;
}

TemporaryFile::~TemporaryFile() {
    if (isTemporary_) files_.removeIfPossible(path_);
}

void TemporaryFile::moveTo(const Files::Path& target) {
    files_.move(path_, target);
    path_ = target;
    isTemporary_ = false;
}

}  // namespace tessivox::base
