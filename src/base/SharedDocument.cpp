#include "base/SharedDocument.h"

#include <cerrno>
#include <span>
#include <string>

namespace tessivox::base {
namespace {

/// Some network folders have no locks. Better a change that another one in the same moment may undo than none at all.
void lockIfPossible(File& file) {
    try {
        file.lock();
    } catch (const FileError& error) {
        if (error.code() != ENOLCK && error.code() != ENOTSUP) throw;
    }
}

/// More damaged files than this in one folder mean that something else is wrong.
constexpr int kMaxKeptAside = 1000;

}  // namespace

Files::Path SharedDocument::sibling(std::string_view prefix, std::string_view suffix) const {
    return file_.parent_path() / (std::string(prefix) + file_.filename().string() + std::string(suffix));
}

std::unique_ptr<File> SharedDocument::lock() {
    files_.makeFolders(file_.parent_path());
    const auto path = sibling("", ".lock");
    try {
        if (!files_.exists(path)) files_.create(path);
    } catch (const FileError& error) {
        if (error.code() != EEXIST) throw;
    }
    auto file = files_.open(path, FileAccess::update);
    lockIfPossible(*file);
    return file;
}

void SharedDocument::replace(std::string_view text) {
    const auto temporary = sibling(".", ".new");
    files_.removeIfPossible(temporary);  // left by a crash: whoever is here holds the lock
    try {
        const auto file = files_.create(temporary);
        file->append(std::as_bytes(std::span(text)));
        file->sync();
        files_.replace(temporary, file_);
    } catch (const FileError&) {
        files_.removeIfPossible(temporary);
        throw;
    }
    files_.syncFolder(file_.parent_path());
}

Files::Path SharedDocument::keepAside() {
    for (int number = 1;; ++number) {
        const auto kept = sibling("", ".damaged-" + std::to_string(number));
        try {
            files_.move(file_, kept);
            return kept;
        } catch (const FileError& error) {
            if (error.code() != EEXIST || number == kMaxKeptAside) throw;
        }
    }
}

}  // namespace tessivox::base
