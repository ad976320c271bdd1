#include "app/RecordPreparation.h"

#include <gtest/gtest.h>

#include <string>

#include "app/FakeDevices.h"
#include "support/CrashingFiles.h"

namespace tessivox::app {
namespace {

std::string uidOf(const std::variant<std::string, Refusal>& found) {
    const auto* uid = std::get_if<std::string>(&found);
    return uid ? *uid : "refused: " + std::get<Refusal>(found).sentence;
}

TEST(FindMicrophoneTest, TakesAUidBeforeANameAndANameInAnyCase) {
    FakeDevices devices;
    devices.now.inputs.push_back({3, "usb", "third"});
    EXPECT_EQ(uidOf(findMicrophone(devices.now, "usb")), "usb");
    EXPECT_EQ(uidOf(findMicrophone(devices.now, "USB Mic")), "usb");
    EXPECT_EQ(uidOf(findMicrophone(devices.now, "built-IN")), "pci");
    EXPECT_EQ(uidOf(findMicrophone(devices.now, "USB")), "third");
}

TEST(FindMicrophoneTest, NamesWhatThereIsWhenANameIsUnknownOrNotUnique) {
    FakeDevices devices;
    EXPECT_EQ(
        uidOf(findMicrophone(devices.now, "Mic")),
        "refused: There is no microphone \"Mic\": give --mic one of these: \"Built-in\" (pci), \"USB Mic\" (usb).");
    devices.now.inputs.push_back({3, "USB Mic", "usb.2"});
    const auto twins = uidOf(findMicrophone(devices.now, "USB Mic"));
    EXPECT_NE(twins.find("\"USB Mic\" (usb), \"USB Mic\" (usb.2)"), std::string::npos) << twins;
    devices.now.inputs.clear();
    EXPECT_NE(uidOf(findMicrophone(devices.now, "Mic")).find("--mic none"), std::string::npos);
}

class OutputRefusalTest : public ::testing::Test {
protected:
    testing::CrashingFiles files;

    std::string refusal(const std::filesystem::path& output, bool savesSeparateTracks = false) {
        const auto found = outputRefusal(files, output, savesSeparateTracks);
        return found ? found->sentence : "";
    }
};

TEST_F(OutputRefusalTest, OverwritesNothingThatTheRecordingWouldBeSavedIn) {
    files.put("/music/a.m4a", "x");
    files.put("/music/b_system.m4a", "x");
    EXPECT_NE(refusal("/music/a.m4a").find("already exists"), std::string::npos);
    EXPECT_EQ(refusal("/music/b.m4a"), "");
    EXPECT_NE(refusal("/music/b.m4a", true).find("\"/music/b_system.m4a\" already exists"), std::string::npos);
    EXPECT_EQ(files.list("/music").size(), 2U) << "the trial leaves nothing behind";
}

TEST_F(OutputRefusalTest, WantsAFolderThatExistsAndCanBeWritten) {
    files.put("/music/file", "x");
    EXPECT_NE(refusal("/none/a.m4a").find("There is no folder \"/none\""), std::string::npos);
    EXPECT_NE(refusal("/music/file/a.m4a").find("There is no folder"), std::string::npos);
    files.failFrom(1, testing::CrashingFiles::Fault::noSpace);
    EXPECT_NE(refusal("/music/a.m4a").find("is full"), std::string::npos);
    files.heal();
    files.failFrom(1, testing::CrashingFiles::Fault::ioError);
    EXPECT_NE(refusal("/music/a.m4a").find("make the folder writable"), std::string::npos);
}

}  // namespace
}  // namespace tessivox::app
