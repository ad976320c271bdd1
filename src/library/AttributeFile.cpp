#include "library/AttributeFile.h"

#include <cerrno>
#include <set>

#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::library {
namespace {

bool isSameFile(const base::FileStatus& a, const base::FileStatus& b) {
    return a.inode == b.inode && a.size == b.size && a.modified == b.modified;
}

}  // namespace

AttributeFile::AttributeFile(base::Files& files, const std::filesystem::path& folder)
    : files_(files), folder_(folder), stored_(files, folder / kName) {}

std::optional<FileIdentity> AttributeFile::identityOf(const std::string& file) const {
    const auto status = files_.status(folder_ / file);
    if (!status) return std::nullopt;
    return FileIdentity{status->inode, status->birth};
}

AttributeDocument::Reading AttributeFile::read() {
    try {
        return AttributeDocument::parsed(files_.readAll(stored_.path(), AttributeDocument::kMaxSize));
    } catch (const base::FileError& error) {
        if (error.code() == ENOENT) return {};
        if (error.code() == EFBIG) return {{}, false};
        throw;
    }
}

void AttributeFile::refresh() {
    const auto status = files_.status(stored_.path());
    if (status && knownStatus_ && isSameFile(*status, *knownStatus_)) return;
    known_ = {};
    knownStatus_ = status;
    if (!status) return;
    try {
        auto reading = read();
        if (!reading.isSound) base::log("[Metadata] \"" + stored_.path().string() + "\" is damaged.");
        known_ = std::move(reading.document);
    } catch (const base::FileError& error) {
        base::log("[Metadata] " + error.description());
    }
}

std::optional<std::string> AttributeFile::value(const std::string& file, const std::string& attribute) {
    refresh();
    if (!knownStatus_) return std::nullopt;
    const auto identity = identityOf(file);
    return identity ? known_.value(file, *identity, attribute) : std::nullopt;
}

void AttributeFile::set(const std::string& file, const std::string& attribute, std::optional<std::string_view> value) {
    const auto identity = identityOf(file);
    if (!identity) return;
    refresh();
    if (!value && !known_.value(file, *identity, attribute)) return;
    change([&](AttributeDocument& document) { document.set(file, *identity, attribute, value); });
}

void AttributeFile::renamed(const std::string& from, const std::string& to) {
    const auto identity = identityOf(to);
    refresh();
    if (!identity || !known_.has(from, *identity)) return;
    change([&](AttributeDocument& document) { document.rename(from, to, *identity); });
}

void AttributeFile::forget(const std::string& file, const FileIdentity& identity) {
    refresh();
    if (!known_.has(file, identity)) return;
    change([&](AttributeDocument& document) { document.erase(file, identity); });
}

template <typename Change>
void AttributeFile::change(Change change) {
    const auto held = stored_.lock();
    auto [document, isSound] = read();
    if (!isSound) {
        const auto kept = stored_.keepAside();
        base::log("[Metadata] \"" + stored_.path().string() + "\" was damaged; what it held is in \"" + kept.string() +
                  "\".");
    }
    change(document);
    write(document);
    knownStatus_.reset();
}

void AttributeFile::write(AttributeDocument& document) {
    auto text = document.text();
    if (text.size() > AttributeDocument::kMaxSize) {
        std::set<std::string> names;
        for (const auto& name : files_.list(folder_)) names.insert(base::percentEncoded(name.native()));
        document.keepOnly([&](const std::string& name) { return names.contains(name); });
        text = document.text();
    }
    if (text.size() > AttributeDocument::kMaxSize)
        throw base::FileError(EFBIG, "\"" + stored_.path().string() + "\" would become too large.");
    stored_.replace(text);
}

}  // namespace tessivox::library
