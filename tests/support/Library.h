#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "core/AppSettings.h"
#include "core/JsonPreferences.h"
#include "library/RecordingStorage.h"
#include "support/CrashingFiles.h"
#include "support/ManualRuntime.h"
#include "support/QuietDesktop.h"

namespace tessivox::testing {

inline std::string bigEndian(std::uint64_t value, int width) {
    std::string bytes;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

inline std::string mpeg4Box(const std::string& type, const std::string& payload) {
    return bigEndian(8 + payload.size(), 4) + type + payload;
}

/// The least that an .m4a of that length is made of.
inline std::string silentMovie(int seconds) {
    const auto header = std::string(12, '\0') + bigEndian(1000, 4) + bigEndian(std::uint64_t(seconds) * 1000, 4);
    return mpeg4Box("ftyp", "M4A ") + mpeg4Box("moov", mpeg4Box("mvhd", header + std::string(80, '\0')));
}

/// A media library that knows what it was told.
struct FakeLengths final : library::MediaLengths {
    std::optional<double> answer;
    mutable int asked = 0;
    std::optional<double> seconds(const std::filesystem::path&) const override {
        ++asked;
        return answer;
    }
};

inline library::MakeID countingIDs() {
    return [last = std::make_shared<int>(0)] { return "id-" + std::to_string(++*last); };
}

/// A library in a folder on a disk in memory, in virtual time. What stands between it and the disk may be given.
struct Library {
    static inline const std::filesystem::path kHome = "/home/user";
    static inline const std::filesystem::path kFolder = kHome / "Recordings";
    static inline const std::filesystem::path kTrash = kHome / "data/Trash";

    ManualRuntime& time;
    NoChooser chooser;
    NoLoginItem loginItem;
    FakeLengths lengths;
    UtcTime utc;
    core::JsonPreferences preferences;
    core::AppSettings settings;
    library::Trash trash;
    std::optional<library::RecordingStorage> storage;

    Library(ManualRuntime& runtime, base::Files& files)
        : time(runtime),
          preferences(files, runtime, kHome / "config/settings.json", [](const std::string&) {}),
          settings(preferences, files, {kHome, kHome / "data", kHome / "config", "/tmp"}, chooser, loginItem),
          trash(files, utc, runtime, kHome / "data") {
        settings.recordingsDirectoryPath.set(kFolder.string());
        storage.emplace(library::RecordingStorage::Parts{runtime, files, settings, trash, lengths, countingIDs()});
    }

    void scan() {
        storage->loadRecordings();
        time.settle();
    }
    /// The entry of that name; an empty one if there is none.
    library::Recording entry(const std::string& name) const {
        for (const auto& recording : storage->recordings.get()) {
            if (recording.name == name) return recording;
        }
        return {};
    }
    std::string names() const {
        std::string all;
        for (const auto& recording : storage->recordings.get()) all += (all.empty() ? "" : " ") + recording.name;
        return all;
    }
};

}  // namespace tessivox::testing
