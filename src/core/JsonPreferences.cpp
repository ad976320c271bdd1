#include "core/JsonPreferences.h"

#include <cerrno>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::core {
namespace {

using base::filled;
using base::localized;

}  // namespace

JsonPreferences::JsonPreferences(base::Files& files, base::Scheduler& scheduler, std::filesystem::path file,
                                 Report report)
    : files_(files), scheduler_(scheduler), document_(files, std::move(file)), report_(std::move(report)) {
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
        const auto held = document_.lock();
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
    const auto kept = document_.keepAside();
    report_(filled(localized("The settings file was damaged, so the defaults apply; what it held is in \"{0}\"."),
                   {kept.string()}));
}

void JsonPreferences::save() {
    if (unsaved_.empty()) return;
    const auto failed = [this](const std::string& reason) {
        report_(filled(localized("The settings could not be saved and hold only until Tessivox ends: {0}"), {reason}));
    };
    try {
        const auto held = document_.lock();
        const auto reading = read();
        take(reading);
        if (std::holds_alternative<PreferencesDocument>(reading)) write();
        if (const auto* unreadable = std::get_if<Unreadable>(&reading)) failed(unreadable->reason);
    } catch (const base::FileError& error) {
        failed(error.description());
    }
    if (!isWatching_) watch();
}

void JsonPreferences::write() {
    const auto next = withUnsaved();
    if (next != stored_) {
        const auto text = next.text();
        if (text.size() > PreferencesDocument::kMaxSize)
            throw base::FileError(EFBIG, filled(localized("\"{0}\" would become too large."), {file_.string()}));
        document_.replace(text);
    }
    stored_ = next;
    unsaved_.clear();
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
