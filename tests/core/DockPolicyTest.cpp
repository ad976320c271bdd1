#include "core/DockPolicy.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/MemoryPreferences.h"
#include "support/NullFiles.h"
#include "support/QuietDesktop.h"

namespace tessivox::core {
namespace {

/// Remembers each change that was asked for.
struct FakeDock final : Dock {
    ActivationPolicy now = ActivationPolicy::regular;
    std::vector<ActivationPolicy> changes;
    ActivationPolicy activationPolicy() const override { return now; }
    void setActivationPolicy(ActivationPolicy policy) override { changes.push_back(now = policy); }
};

class DockPolicyTest : public ::testing::Test {
protected:
    testing::MemoryPreferences store;
    testing::NullFiles files;
    testing::NoChooser chooser;
    testing::NoLoginItem loginItem;
    AppSettings settings{store, files, {}, chooser, loginItem};
    FakeDock dock;
    DockPolicy policy{store, settings, dock};
};

TEST_F(DockPolicyTest, ChangesTheDockOnlyWhereItDiffersFromTheSetting) {
    policy.apply();
    EXPECT_TRUE(dock.changes.empty());
    settings.showInDock.set(false);
    EXPECT_TRUE(dock.changes.empty()) << "nobody asked to follow the setting yet";
    policy.apply();
    policy.apply();
    EXPECT_EQ(dock.changes, std::vector{ActivationPolicy::accessory});
}

TEST_F(DockPolicyTest, FollowsTheSettingAndCorrectsWhatOthersDidAtTheNextChangeOfAnyPreference) {
    policy.follow();
    settings.showInDock.set(false);
    settings.showInDock.set(true);
    EXPECT_EQ(dock.changes, (std::vector{ActivationPolicy::accessory, ActivationPolicy::regular}));
    dock.now = ActivationPolicy::accessory;
    settings.autoSummarize.set(true);
    EXPECT_EQ(dock.now, ActivationPolicy::regular);
}

}  // namespace
}  // namespace tessivox::core
