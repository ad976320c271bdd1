#include "app/InstanceLock.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "base/Error.h"
#include "base/Text.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using Path = std::filesystem::path;

base::Error error(int code, std::string_view english, std::initializer_list<std::string_view> values) {
    return {"app", code, filled(localized(english), values)};
}

/// Another process may make the file at the same time.
std::unique_ptr<base::File> openOrCreate(base::Files& files, const Path& path) {
    try {
        return files.create(path);
    } catch (const base::FileError& failure) {
        if (failure.code() != EEXIST) throw;
    }
    return files.open(path, base::FileAccess::update);
}

}  // namespace

std::unique_ptr<base::File> takeInstanceLock(base::Files& files, const std::optional<Path>& runtimeFolder,
                                             const Path& stateFolder) {
    if (runtimeFolder) {
        const auto status = files.status(*runtimeFolder);
        if (!status || !status->isFolder)
            throw error(ENOENT,
                        "The folder \"{0}\" that XDG_RUNTIME_DIR names does not exist: log in again, or unset the "
                        "variable.",
                        {runtimeFolder->string()});
    }
    const auto path = runtimeFolder.value_or(stateFolder) / "Tessivox" / "running.lock";
    try {
        files.makeFolders(path.parent_path());
        auto file = openOrCreate(files, path);
        return file->tryLock(path) ? std::move(file) : nullptr;
    } catch (const base::FileError& failure) {
        throw error(
            failure.code(),
            "{0} Tessivox keeps a lock there while it runs: make the folder writable, or set XDG_RUNTIME_DIR to one "
            "that is.",
            {failure.description()});
    }
}

}  // namespace tessivox::app
