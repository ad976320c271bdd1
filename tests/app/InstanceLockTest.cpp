#include "app/InstanceLock.h"

#include <gtest/gtest.h>

#include <string>

#include "base/Error.h"
#include "support/CrashingFiles.h"

namespace tessivox::app {
namespace {

const std::filesystem::path kState = "/home/user/.local/state";

class InstanceLockTest : public ::testing::Test {
protected:
    testing::CrashingFiles files;

    std::string problem(const std::optional<std::filesystem::path>& runtimeFolder) {
        try {
            takeInstanceLock(files, runtimeFolder, kState);
            return "";
        } catch (const base::Error& error) {
            return error.description();
        }
    }
};

TEST_F(InstanceLockTest, IsHeldByOneAtATimeAndFreeAgainWhenItIsGone) {
    files.makeFolders("/run/user/1000");
    for (const std::optional<std::filesystem::path> runtimeFolder : {"/run/user/1000", ""}) {
        const auto folder = runtimeFolder->empty() ? std::nullopt : runtimeFolder;
        auto first = takeInstanceLock(files, folder, kState);
        EXPECT_NE(first, nullptr);
        EXPECT_EQ(takeInstanceLock(files, folder, kState), nullptr);
        first = nullptr;
        EXPECT_NE(takeInstanceLock(files, folder, kState), nullptr);
    }
    EXPECT_TRUE(files.exists("/run/user/1000/Tessivox"));
    EXPECT_TRUE(files.exists(kState / "Tessivox"));
}

TEST_F(InstanceLockTest, SaysWhatToDoWithoutItsFolder) {
    EXPECT_NE(problem("/run/user/1000").find("unset"), std::string::npos);
    EXPECT_FALSE(files.exists("/run/user/1000")) << "the session makes it, with its own rules";
    files.put("/run/file", "");
    EXPECT_NE(problem("/run/file").find("/run/file"), std::string::npos);
    files.makeFolders("/run/user/1000");
    files.failFrom(files.operationCount() + 1, testing::CrashingFiles::Fault::ioError);
    EXPECT_NE(problem("/run/user/1000").find("make the folder writable"), std::string::npos);
}

}  // namespace
}  // namespace tessivox::app
