#include "audio/AudioDeviceManager.h"

#include <gtest/gtest.h>

#include "support/FakeSound.h"
#include "support/ManualRuntime.h"

namespace tessivox::audio {
namespace {

using namespace std::chrono_literals;

TEST(AudioDeviceManagerTest, TheListAndTheDefaultFollowTheServerByThemselves) {
    testing::ManualRuntime time;
    testing::FakeSound sound(time);
    AudioDeviceManager manager(time, sound);
    EXPECT_EQ(manager.defaultInputDeviceID.get(), 0U);
    time.advance(10ms);
    EXPECT_EQ(manager.inputDevices.get(), (std::vector<AudioDevice>{{1, "Built-in", "pci"}}));
    EXPECT_EQ(manager.defaultInputDeviceID.get(), 1U);
    sound.plug("usb", "Headset");
    sound.setDefaultInput("usb");
    time.advance(10ms);
    EXPECT_EQ(manager.inputDevices.get().size(), 2U);
    EXPECT_EQ(manager.defaultInputDeviceID.get(), 2U);
    sound.die();
    time.advance(10ms);
    EXPECT_TRUE(manager.inputDevices.get().empty());
    EXPECT_EQ(manager.defaultInputDeviceID.get(), 0U);
}

}  // namespace
}  // namespace tessivox::audio
