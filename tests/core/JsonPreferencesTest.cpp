#include "core/JsonPreferences.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/CrashingFiles.h"
#include "support/ManualRuntime.h"

namespace tessivox::core {
namespace {

using namespace std::chrono_literals;
using base::PreferenceValue;
using testing::CrashingFiles;

const std::filesystem::path kFolder = "/home/user/.config/Tessivox";
const std::filesystem::path kFile = kFolder / "settings.json";

PreferenceValue text(std::string value) { return PreferenceValue(std::move(value)); }

class JsonPreferencesTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    CrashingFiles files;
    std::vector<std::string> reports;

    JsonPreferences open() {
        return {files, time, kFile, [this](const std::string& sentence) { reports.push_back(sentence); }};
    }
    nlohmann::json onDisk() { return nlohmann::json::parse(files.readAll(kFile, 1 << 21)); }
    std::string contents(const std::filesystem::path& file) { return files.readAll(file, 1 << 21); }
};

TEST_F(JsonPreferencesTest, StoresOneKeyDurablyAndKeepsAllOthers) {
    files.put(kFile, R"({"future": {"a": [1]}, "kept": "x", "gone": true})");
    auto preferences = open();
    preferences.set("name", text("Ada"));
    preferences.set("gone", std::nullopt);
    EXPECT_EQ(preferences.value("name"), text("Ada"));
    files.crash();
    EXPECT_EQ(onDisk(), nlohmann::json::parse(R"({"future": {"a": [1]}, "kept": "x", "name": "Ada"})"));
    EXPECT_TRUE(reports.empty());
}

TEST_F(JsonPreferencesTest, MakesItsFolderOnAFirstRunButNoFileUntilSomethingIsSet) {
    auto preferences = open();
    EXPECT_TRUE(files.exists(kFolder));
    EXPECT_FALSE(files.exists(kFile));
    preferences.set("absent", std::nullopt);
    EXPECT_FALSE(files.exists(kFile));
    preferences.set("present", true);
    EXPECT_EQ(onDisk(), nlohmann::json::parse(R"({"present": true})"));
}

TEST_F(JsonPreferencesTest, KeepsWhatAnotherProcessWroteSinceItLastRead) {
    auto preferences = open();
    preferences.set("mine", true);
    files.put(kFile, R"({"mine": true, "theirs": 5})");
    preferences.set("more", true);
    EXPECT_EQ(onDisk(), nlohmann::json::parse(R"({"mine": true, "theirs": 5, "more": true})"));
    EXPECT_EQ(preferences.value("theirs"), PreferenceValue(std::int64_t{5}));
}

TEST_F(JsonPreferencesTest, LosesNoneOfTheChangesThatTwoProcessesMakeAtOnce) {
    constexpr int kChanges = 100;
    const auto write = [&](const std::string& prefix) {
        testing::ManualRuntime ownTime;
        JsonPreferences preferences(files, ownTime, kFile, [](const std::string& sentence) { FAIL() << sentence; });
        for (int number = 0; number < kChanges; ++number) preferences.set(prefix + std::to_string(number), true);
    };
    std::thread other(write, "other");
    write("own");
    other.join();
    EXPECT_EQ(onDisk().size(), 2U * kChanges);
}

TEST_F(JsonPreferencesTest, TellsOfChangesFromElsewhereOnlyWhenTheContentsDiffer) {
    auto preferences = open();
    int changes = 0;
    const auto subscription = preferences.onChange([&] { ++changes; });
    preferences.set("a", true);
    EXPECT_EQ(changes, 1);
    files.emitChanges();
    EXPECT_EQ(changes, 1) << "one's own write comes back";
    files.put(kFile, "{\"a\"  :  true}");
    files.emitChanges();
    EXPECT_EQ(changes, 1) << "another layout";
    files.put(kFile, R"({"a": false})");
    files.emitChanges();
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(preferences.value("a"), PreferenceValue(false));
    preferences.set("a", false);
    EXPECT_EQ(changes, 2) << "the value that is there";
}

TEST_F(JsonPreferencesTest, WaitsForAnEditorThatHasWrittenOnlyHalf) {
    files.put(kFile, R"({"a": 1})");
    auto preferences = open();
    files.put(kFile, R"({"a": )");
    files.emitChanges();
    EXPECT_EQ(preferences.value("a"), PreferenceValue(std::int64_t{1})) << "the last known value holds meanwhile";
    time.advance(199ms);
    files.put(kFile, R"({"a": 2})");
    time.advance(1s);
    EXPECT_EQ(preferences.value("a"), PreferenceValue(std::int64_t{2}));
    EXPECT_TRUE(reports.empty());
    EXPECT_FALSE(files.exists(kFolder / "settings.json.damaged-1"));
}

TEST_F(JsonPreferencesTest, KeepsADamagedFileAsideUnderAFreeNameAndSaysSo) {
    const std::string tooLong = "{\"a\":\"" + std::string(1 << 20, 'x') + "\"}";
    int number = 1;
    for (const std::string& damaged : {std::string("{\"a\": "), std::string("[]"), std::string("\xff"), tooLong}) {
        files.put(kFile, damaged);
        auto preferences = open();
        time.advance(200ms);
        EXPECT_FALSE(preferences.value("a"));
        EXPECT_FALSE(files.exists(kFile));
        EXPECT_EQ(contents(kFolder / ("settings.json.damaged-" + std::to_string(number))), damaged);
        ASSERT_EQ(reports.size(), static_cast<std::size_t>(number));
        EXPECT_NE(reports.back().find("damaged-" + std::to_string(number)), std::string::npos);
        ++number;
    }
}

TEST_F(JsonPreferencesTest, StoresWhatWasSetMeanwhileOnceADamagedFileIsAside) {
    files.put(kFile, "half");
    auto preferences = open();
    preferences.set("a", true);
    EXPECT_EQ(preferences.value("a"), PreferenceValue(true));
    EXPECT_EQ(contents(kFile), "half");
    time.advance(200ms);
    EXPECT_EQ(contents(kFolder / "settings.json.damaged-1"), "half");
    EXPECT_EQ(onDisk(), nlohmann::json::parse(R"({"a": true})"));
}

TEST_F(JsonPreferencesTest, LeavesADamagedFileAloneThatItCannotMoveAndSaysSoOnce) {
    files.put(kFile, "half");
    auto preferences = open();
    files.failFrom(1, CrashingFiles::Fault::ioError);
    for (int round = 0; round < 5; ++round) {
        files.emitChanges();
        time.advance(1s);
    }
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(contents(kFile), "half");
    files.heal();
    files.put(kFile, R"({"a": true})");
    files.emitChanges();
    EXPECT_EQ(preferences.value("a"), PreferenceValue(true));
}

TEST_F(JsonPreferencesTest, NeitherReadsNorReplacesWhatIsNoFile) {
    files.makeFolders(kFile);
    auto preferences = open();
    EXPECT_EQ(reports.size(), 1U);
    preferences.set("a", true);
    EXPECT_EQ(reports.size(), 2U);
    EXPECT_EQ(preferences.value("a"), PreferenceValue(true));
    EXPECT_TRUE(files.status(kFile)->isFolder);
}

TEST_F(JsonPreferencesTest, RefusesToOutgrowWhatItWouldReadAgain) {
    files.put(kFile, R"({"kept": true})");
    auto preferences = open();
    preferences.set("long", text(std::string(PreferencesDocument::kMaxSize, 'x')));
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(onDisk(), nlohmann::json::parse(R"({"kept": true})"));
}

/// One operation of a write fails, then the machine goes down.
class JsonPreferencesFaultTest : public JsonPreferencesTest,
                                 public ::testing::WithParamInterface<CrashingFiles::Fault> {};

TEST_P(JsonPreferencesFaultTest, KeepsTheOldOrTheNewContentsWhateverFails) {
    const auto before = nlohmann::json::parse(R"({"a": "old", "b": 7})");
    const auto after = nlohmann::json::parse(R"({"a": "new", "b": 7})");
    int failures = 0;
    for (std::uint64_t failing = 1;; ++failing) {
        CrashingFiles disk;
        disk.put(kFile, before.dump());
        std::vector<std::string> told;
        JsonPreferences preferences(disk, time, kFile, [&](const auto& sentence) { told.push_back(sentence); });
        const auto done = disk.operationCount();
        disk.failAt(done + failing, GetParam());
        preferences.set("a", text("new"));
        EXPECT_EQ(preferences.value("a"), text("new"));
        failures += told.empty() ? 0 : 1;

        const bool isStored = told.empty();
        EXPECT_FALSE(disk.exists(kFolder / ".settings.json.new"));
        const bool wasReached = disk.operationCount() >= done + failing;
        disk.crash();
        const auto left = nlohmann::json::parse(disk.readAll(kFile, 1 << 20));
        EXPECT_TRUE(left == after || (!isStored && left == before)) << failing << ": " << left;
        if (!wasReached) break;
    }
    EXPECT_GE(failures, 3);
}

TEST_P(JsonPreferencesFaultTest, WritesWhatFailedBeforeTogetherWithTheNextChange) {
    auto preferences = open();
    preferences.set("a", true);
    files.failFrom(files.operationCount() + 1, GetParam());
    preferences.set("b", true);
    EXPECT_EQ(reports.size(), 1U);
    files.heal();
    files.emitChanges();
    EXPECT_EQ(preferences.value("b"), PreferenceValue(true)) << "a look at the file does not undo it";
    preferences.set("c", true);
    EXPECT_EQ(onDisk(), nlohmann::json::parse(R"({"a": true, "b": true, "c": true})"));
}

INSTANTIATE_TEST_SUITE_P(Faults, JsonPreferencesFaultTest,
                         ::testing::Values(CrashingFiles::Fault::noSpace, CrashingFiles::Fault::ioError,
                                           CrashingFiles::Fault::shortWrite));

}  // namespace
}  // namespace tessivox::core
