#include "core/JsonPreferences.h"

#include <cerrno>
#include <span>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::core {
namespace {

using base::filled;
using base::localized;

/// More damaged files than this in one folder mean that something else is wrong.
constexpr int kMaxKeptAside = 1000;

}  // namespace

JsonPreferences::JsonPreferences(base::Files& files, base::Scheduler& scheduler, std::filesystem::path file,
                                 Report report)
    : files_(files), scheduler_(scheduler), file_(std::move(file)), report_(std::move(report)) {
    watch();
    refresh();
}

std::optional<base::PreferenceValue> JsonPreferences::value(std::string_view key) const { return shown_.value(key); }

void JsonPreferences::set(std::string_view key, std::optional<base::PreferenceValue> value) {
    unsaved_.insert_or_assign(std::string(key), std::move(value));
    save();
    show();
}

base::Subscription JsonPreferences::onChange(std::function<void()> handler) {
    return changed_.observe(std::move(handler));
}

std::filesystem::path JsonPreferences::sibling(std::string_view prefix, std::string_view suffix) const {
    return file_.parent_path() / (std::string(prefix) + file_.filename().string() + std::string(suffix));
}

void JsonPreferences::watch() {
    try {
        files_.makeFolders(file_.parent_path());
        watch_ = files_.watch(file_.parent_path(), [this] { refresh(); });
        isWatching_ = true;
    } catch (const base::FileError& error) {
        base::log("Changes of the settings from elsewhere go unnoticed: " + error.description());
    }
}

JsonPreferences::Reading JsonPreferences::read() const {
    const auto status = files_.status(file_);
    if (!status) return PreferencesDocument();
    if (!status->isRegular) return Unreadable{filled(localized("\"{0}\" is not a file."), {file_.string()})};
    try {
        auto document = PreferencesDocument::parsed(files_.readAll(file_, PreferencesDocument::kMaxSize));
        return document ? Reading(std::move(*document)) : Damaged();
    } catch (const base::FileError& error) {
        if (error.code() == ENOENT) return PreferencesDocument();
        if (error.code() == EFBIG) return Damaged();
        return Unreadable{error.description()};
    }
}

// Writes nothing: this also runs after each change of the folder, those made by a failing write among them.
void JsonPreferences::refresh() {
    take(read());
    show();
}

void JsonPreferences::take(const Reading& reading) {
    if (const auto* document = std::get_if<PreferencesDocument>(&reading)) {
        stored_ = *document;
        lastTrouble_.clear();
        hasGivenUp_ = false;
    } else if (const auto* unreadable = std::get_if<Unreadable>(&reading)) {
        if (std::exchange(lastTrouble_, unreadable->reason) == unreadable->reason) return;
        report_(filled(localized("The settings cannot be read, so they are left alone until you make them readable: "
                                 "{0}"),
                       {unreadable->reason}));
    } else if (!secondLook_ && !hasGivenUp_) {
        secondLook_ = scheduler_.after(kSecondLook, [this] { lookAgain(); });
    }
}

void JsonPreferences::lookAgain() {
    try {
        const auto held = lock();
        if (std::holds_alternative<Damaged>(read())) keepAside();
    } catch (const base::FileError& error) {
        hasGivenUp_ = true;
        report_(filled(localized("The settings file is damaged and could not be set aside; remove or mend it: {0}"),
                       {error.description()}));
        return;
    }
    take(read());
    save();
    show();
}

void JsonPreferences::keepAside() {
    for (int number = 1;; ++number) {
        const auto kept = sibling("", ".damaged-" + std::to_string(number));
        try {
            files_.move(file_, kept);
        } catch (const base::FileError& error) {
            if (error.code() != EEXIST || number == kMaxKeptAside) throw;
            continue;
        }
        report_(filled(localized("The settings file was damaged, so the defaults apply; what it held is in \"{0}\"."),
                       {kept.string()}));
        return;
    }
}

void JsonPreferences::save() {
    if (unsaved_.empty()) return;
    const auto failed = [this](const std::string& reason) {
        report_(filled(localized("The settings could not be saved and hold only until Tessivox ends: {0}"), {reason}));
    };
    try {
        const auto held = lock();
        const auto reading = read();
        take(reading);
        if (std::holds_alternative<PreferencesDocument>(reading)) write();
        if (const auto* unreadable = std::get_if<Unreadable>(&reading)) failed(unreadable->reason);
    } catch (const base::FileError& error) {
        failed(error.description());
    }
    if (!isWatching_) watch();
}

std::unique_ptr<base::File> JsonPreferences::lock() {
    files_.makeFolders(file_.parent_path());
    const auto path = sibling("", ".lock");
    try {
        if (!files_.exists(path)) files_.create(path);
    } catch (const base::FileError& error) {
        if (error.code() != EEXIST) throw;
    }
    auto file = files_.open(path, base::FileAccess::update);
    file->lock();
    return file;
}

void JsonPreferences::write() {
    const auto next = withUnsaved();
    if (next != stored_) {
        const auto text = next.text();
        if (text.size() > PreferencesDocument::kMaxSize)
            throw base::FileError(EFBIG, filled(localized("\"{0}\" would become too large."), {file_.string()}));
        replaceFile(text);
    }
    stored_ = next;
    unsaved_.clear();
}

void JsonPreferences::replaceFile(const std::string& text) {
    const auto temporary = sibling(".", ".new");
    files_.removeIfPossible(temporary);  // left by a crash: whoever is here holds the lock
    try {
        const auto file = files_.create(temporary);
        file->append(std::as_bytes(std::span(text)));
        file->sync();
        files_.replace(temporary, file_);
    } catch (const base::FileError&) {
        files_.removeIfPossible(temporary);
        throw;
    }
    files_.syncFolder(file_.parent_path());
}

PreferencesDocument JsonPreferences::withUnsaved() const {
    auto document = stored_;
    for (const auto& [key, value] : unsaved_) document.set(key, value);
    return document;
}

void JsonPreferences::show() {
    auto next = withUnsaved();
    if (next == shown_) return;
    shown_ = std::move(next);
    changed_.emit();
}

}  // namespace tessivox::core
