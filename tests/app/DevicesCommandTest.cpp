#include "app/DevicesCommand.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "app/FakeConsole.h"
#include "app/FakeDevices.h"
#include "support/ManualRuntime.h"

namespace tessivox::app {
namespace {

class DevicesCommandTest : public ::testing::Test {
protected:
    testing::ManualRuntime time;
    FakeDevices devices;
    FakeConsole console;

    ExitCode list(bool asJSON) { return testing::await(time, listDevices(DevicesOptions{asJSON}, devices, console)); }
};

TEST_F(DevicesCommandTest, PrintsTheObjectThatItsHelpPromises) {
    EXPECT_EQ(list(true), ExitCode::done);
    EXPECT_EQ(nlohmann::json::parse(console.output), nlohmann::json::parse(R"({
        "inputs": [{"name": "Built-in", "uid": "pci", "isDefault": true},
                   {"name": "USB Mic", "uid": "usb", "isDefault": false}],
        "defaultInput": "pci", "systemAudioSource": "speakers.monitor"})"));
    EXPECT_TRUE(console.messages.empty());
}

TEST_F(DevicesCommandTest, PrintsNullsWithoutDevicesAndSurvivesBrokenNames) {
    devices.now = {true, {{1, "Mic \xff", "pci"}}, "", ""};
    list(true);
    const auto object = nlohmann::json::parse(console.output);
    EXPECT_TRUE(object.at("defaultInput").is_null());
    EXPECT_TRUE(object.at("systemAudioSource").is_null());
    EXPECT_EQ(object.at("inputs").at(0).at("isDefault"), false);
}

TEST_F(DevicesCommandTest, MarksTheDefaultForPeople) {
    list(false);
    EXPECT_NE(console.output.find("* Built-in\n"), std::string::npos);
    EXPECT_NE(console.output.find("  USB Mic\n      usb\n"), std::string::npos);
}

TEST_F(DevicesCommandTest, FailsWithoutASoundServerAndPrintsNothing) {
    devices.now = {};
    EXPECT_EQ(list(true), ExitCode::failed);
    EXPECT_EQ(console.output, "");
    EXPECT_TRUE(console.said("start PipeWire or PulseAudio"));
}

}  // namespace
}  // namespace tessivox::app
