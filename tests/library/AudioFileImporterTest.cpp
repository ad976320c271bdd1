#include "library/AudioFileImporter.h"

#include <gtest/gtest.h>

#include <cmath>

#include "audio/LeftoverSweep.h"
#include "support/Library.h"
#include "support/MemoryPreferences.h"

namespace tessivox::library {
namespace {

using Path = std::filesystem::path;
using testing::CrashingFiles;

const auto& kFolder = testing::Library::kFolder;
const Path kDesk = "/home/user/Desk";

/// Writes down what it converts, in two halves.
struct FakeConversion final : AudioConversion {
    base::Files& files;
    std::optional<std::string> failure;
    std::function<void()> inTheMiddle = [] {};
    audio::AudioEncoding form;

    explicit FakeConversion(base::Files& disk) : files(disk) {}
    double convertToM4A(const Path& source, const Path& target, const audio::AudioEncoding& wanted,
                        const std::function<void(double)>& progress, const std::stop_token& stop) override {
        form = wanted;
        const auto file = files.open(target, base::FileAccess::update);
        const auto write = [&file](const std::string& text) { file->append(std::as_bytes(std::span(text))); };
        write("AAC of ");
        progress(0.5);
        inTheMiddle();
        if (stop.stop_requested()) throw base::Error("fake", 1, "Interrupted.");
        if (failure) throw base::Error("fake", 2, *failure);
        write(files.readAll(source, 1000));
        file->sync();
        progress(1);
        return 7;
    }
};

class AudioFileImporterTest : public ::testing::Test, public telemetry::AnalyticsSink {
protected:
    testing::ManualRuntime time;
    CrashingFiles disk;
    testing::Library library{time, disk};
    testing::MemoryPreferences preferences;
    telemetry::Analytics analytics{*this, preferences, [] { return true; }, "1.0"};
    FakeConversion conversion{disk};
    std::vector<std::string> events, transcriptions, steps;
    int uuids = 0;
    std::optional<AudioFileImporter> importer;
    base::Subscription stepping, fraction;

    void SetUp() override {
        time.settle();
        library.lengths.answer = 5;
        importer.emplace(AudioFileImporter::Parts{
            time, disk, library.settings, analytics, *library.storage, library.lengths, conversion,
            [this] { return "00000000-0000-4000-8000-" + std::to_string(100000000000 + ++uuids); },
            [this](const Path& url, double duration) {
                transcriptions.push_back(url.filename().string() + " " + std::to_string(static_cast<int>(duration)));
            }});
        stepping = importer->importProgress.observe([this](const auto& step) { steps.push_back(step.value_or("-")); });
        fraction = importer->fractionDone.observe([this](const auto& done) {
            if (done) steps.push_back(std::to_string(static_cast<int>(*done * 100)));
        });
    }
    void initialise(std::string_view) override {}
    void send(std::string_view name, const telemetry::Parameters& parameters) override {
        std::string event(name);
        for (const auto& [key, value] : parameters) event += " " + key + "=" + value;
        events.push_back(event);
    }
    void sendActivation(std::string_view) override {}

    Path put(const std::string& name, const std::string& contents = "sound") {
        disk.put(kDesk / name, contents);
        return kDesk / name;
    }
    std::string import(const Path& file) {
        return testing::await(time, importer->importAudioFile(file)).filename().string();
    }
    std::string errorOf(const Path& file) {
        try {
            return "no error but " + import(file);
        } catch (const AudioImportError& error) {
            EXPECT_FALSE(importer->isImporting.get());
            EXPECT_EQ(importer->importProgress.get(), std::nullopt);
            EXPECT_TRUE(library.storage->recordings.get().empty());
            EXPECT_TRUE(audio::sortedNames(disk, kFolder).empty());
            EXPECT_TRUE(transcriptions.empty());
            return error.description();
        }
    }
    std::string contents(const std::string& name) { return disk.readAll(kFolder / name, 10'000'000); }
};

TEST_F(AudioFileImporterTest, ConvertsWhateverIsNoM4aUnderItsOwnNameAndTellsHowFarItIs) {
    EXPECT_EQ(import(put("talk.MP3")), "talk.m4a");
    EXPECT_EQ(steps, (std::vector<std::string>{"-", "Validating...", "Converting to M4A...", "50", "100", "-"}));
    for (const auto* name : {"a.wav", "b.Aiff", "c.caf"}) EXPECT_TRUE(import(put(name)).ends_with(".m4a"));
    EXPECT_EQ(library.names(), "c b a talk");
    EXPECT_EQ(library.entry("talk").duration, 7);
    EXPECT_EQ(contents("talk.m4a"), "AAC of sound");
    EXPECT_EQ(disk.readAll(kDesk / "talk.MP3", 100), "sound");
    EXPECT_EQ(events.front(), "audio_file_imported converted=true original_format=mp3");
    EXPECT_EQ(transcriptions.front(), "talk.m4a 7");
    EXPECT_EQ(conversion.form.sampleRate, 48000);
    EXPECT_EQ(conversion.form.channels, 2);
    EXPECT_EQ(conversion.form.bitrate, 128000);
}

TEST_F(AudioFileImporterTest, CopiesAnM4aByteForByte) {
    std::string sound;
    for (std::uint32_t i = 0; i < 2'500'000; ++i) sound += static_cast<char>(i * i >> 7);
    library.settings.autoTranscribe.set(false);
    EXPECT_EQ(import(put("talk.M4A", sound)), "talk.m4a");
    EXPECT_EQ(contents("talk.m4a"), sound);
    EXPECT_EQ(library.entry("talk").duration, 5);
    EXPECT_EQ(steps, (std::vector<std::string>{"-", "Validating...", "Copying file...", "41", "83", "100", "-"}));
    EXPECT_EQ(events, (std::vector<std::string>{"audio_file_imported converted=false original_format=m4a"}));
    EXPECT_TRUE(transcriptions.empty());
    disk.crash();
    EXPECT_EQ(contents("talk.m4a"), sound);
}

TEST_F(AudioFileImporterTest, RefusesWhatIsNoSupportedSound) {
    for (const auto* name : {"a.txt", "a.aif", "a.flac", "a.AAC"}) {
        EXPECT_FALSE(AudioFileImporter::isSupported(name));
        EXPECT_TRUE(errorOf(put(name)).starts_with("Unsupported audio format: .")) << name;
    }
    EXPECT_EQ(events.back(), "audio_file_import_failed format=aac reason=unsupported_format");
    EXPECT_EQ(errorOf(put("a")), "Unsupported audio format: .");
    EXPECT_EQ(errorOf(put("a.\xff\xfe")), "Unsupported audio format: .%FF%FE");
    EXPECT_TRUE(AudioFileImporter::isSupported("talk.MP3"));
    events.clear();
    for (const auto answer : {std::optional<double>(), std::optional(0.0), std::optional(std::nan(""))}) {
        library.lengths.answer = answer;
        EXPECT_EQ(errorOf(put("a.wav")), "Could not read audio duration");
    }
    library.lengths.answer = 5;
    EXPECT_EQ(errorOf(kDesk / "missing.m4a"), "Could not read audio duration");
    EXPECT_EQ(errorOf(kDesk), "Unsupported audio format: .");
    disk.makeFolders(kDesk / "folder.wav");
    EXPECT_EQ(errorOf(kDesk / "folder.wav"), "Could not read audio duration");
    EXPECT_TRUE(events.empty() || events.back().find("unsupported") != std::string::npos);
}

TEST_F(AudioFileImporterTest, EveryFileFindsANameOfItsOwn) {
    put("talk.m4a");
    for (const auto* name : {"talk.m4a", "talk_1.m4a"}) disk.put(kFolder / name, "earlier");
    EXPECT_EQ(import(kDesk / "talk.m4a"), "talk_2.m4a");
    EXPECT_EQ(import(kFolder / "talk.m4a"), "talk_3.m4a");
    EXPECT_EQ(contents("talk.m4a"), "earlier");
    // Files that the library would hide, or take for a part of another recording.
    EXPECT_EQ(import(put(".secret.wav")), "secret.m4a");
    EXPECT_EQ(import(put("....wav")), "imported.m4a");
    EXPECT_EQ(import(put("talk_mic.wav")), "talk_mic_1.m4a");
    // Names of every sidecar have to fit, too.
    std::string longest;
    for (int i = 0; i < 83; ++i) longest += "\xe2\x82\xac";
    EXPECT_EQ(import(put(longest + ".wav")), longest.substr(0, 243) + ".m4a");
    EXPECT_EQ(import(put(longest + ".wav")), longest.substr(0, 240) + "_1.m4a");
}

TEST_F(AudioFileImporterTest, FilesDroppedTogetherWithOneStemDoNotShareADestination) {
    base::TaskScope drops(time);
    const auto drop = [](AudioFileImporter& to, Path file) -> base::Task<void> {
        static_cast<void>(co_await to.importAudioFile(std::move(file)));
    };
    for (const auto* name : {"talk.wav", "talk.mp3", "talk.m4a"}) drops.start(drop(*importer, put(name, name)));
    time.settle();
    ASSERT_TRUE(drops.isIdle());
    EXPECT_EQ(audio::sortedNames(disk, kFolder), (std::vector<std::string>{"talk.m4a", "talk_1.m4a", "talk_2.m4a"}));
    EXPECT_EQ(contents("talk.m4a"), "AAC of talk.wav");
    EXPECT_EQ(contents("talk_1.m4a"), "AAC of talk.mp3");
    EXPECT_EQ(contents("talk_2.m4a"), "talk.m4a");
}

TEST_F(AudioFileImporterTest, AFailureSaysWhyAndLeavesNothingBehind) {
    conversion.failure = "Nothing in this file could be decoded.";
    EXPECT_EQ(errorOf(put("a.caf")), "Audio conversion failed: Nothing in this file could be decoded.");
    EXPECT_EQ(events.back(), "audio_file_import_failed reason=conversion_failed");
    conversion.failure.reset();
    disk.failFrom(disk.operationCount() + 2, CrashingFiles::Fault::noSpace, kFolder);
    EXPECT_TRUE(errorOf(put("a.m4a")).starts_with("File copy failed: "));
    EXPECT_EQ(events.back(), "audio_file_import_failed reason=copy_failed");
    disk.heal();
}

TEST_F(AudioFileImporterTest, WhicheverOperationFailsThereIsAWholeRecordingOrNothing) {
    for (const auto* name : {"a.wav", "a.m4a"}) {
        const auto source = put(name);
        for (std::uint64_t n = 1;; ++n) {
            const auto before = disk.operationCount();
            disk.failAt(before + n, CrashingFiles::Fault::ioError);
            std::string imported;
            try {
                imported = import(source);
            } catch (const AudioImportError&) {
            }
            const bool isPastTheEnd = disk.operationCount() < before + n;
            disk.heal();
            EXPECT_EQ(audio::sortedNames(disk, kFolder),
                      imported.empty() ? std::vector<std::string>{} : std::vector{imported});
            if (isPastTheEnd) break;
            if (!imported.empty()) disk.remove(kFolder / imported);
        }
        disk.remove(kFolder / "a.m4a");
    }
}

TEST_F(AudioFileImporterTest, AnInterruptedImportLeavesNothingBehind) {
    for (const auto* name : {"a.wav", "a.m4a"}) {
        for (const bool isInTheMiddle : {true, false}) {
            std::optional<base::TaskScope> scope(time);
            const auto drop = [](AudioFileImporter& to, Path file) -> base::Task<void> {
                static_cast<void>(co_await to.importAudioFile(std::move(file)));
            };
            scope->start(drop(*importer, put(name, std::string(3 << 20, 'x'))));
            conversion.inTheMiddle = [&] { scope.reset(); };
            const auto interrupting = importer->importProgress.observe([&](const auto& step) {
                if (step == "Copying file..." || (step && !isInTheMiddle && *step != "Validating..."))
                    time.post([&] { scope.reset(); });
            });
            time.settle();
            EXPECT_FALSE(scope);
            EXPECT_FALSE(importer->isImporting.get());
            EXPECT_EQ(importer->fractionDone.get(), std::nullopt);
            EXPECT_TRUE(audio::sortedNames(disk, kFolder).empty());
            EXPECT_TRUE(events.empty() && transcriptions.empty());
        }
    }
}

}  // namespace
}  // namespace tessivox::library
