#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "support/SoundServer.h"
#include "support/TestFolder.h"

namespace tessivox::testing {

using Path = std::filesystem::path;
using Arguments = std::vector<std::string>;

/// The program itself, in a home of its own.
class ProgramHome : public ::testing::Test {
protected:
    ProgramHome() {
        std::filesystem::create_directory(runtime);
        std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    }

    Arguments environment(const std::string& log = "errors") const {
        return {"HOME=" + home.string(),
                "XDG_CONFIG_HOME=" + (home / "config").string(),
                "XDG_DATA_HOME=" + data.string(),
                "XDG_STATE_HOME=" + (home / "state").string(),
                "XDG_RUNTIME_DIR=" + runtime.string(),
                "PULSE_SERVER=" + soundServer,
                "DBUS_SESSION_BUS_ADDRESS=" + sessionBus,
                "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere",
                "TESSIVOX_SERVER=" + serverURL,
                "TESSIVOX_ANALYTICS_URL=" + analyticsURL,
                "TESSIVOX_CRASH_URL=",
                "LOG=" + (home / log).string()};
    }
    /// What it says on standard error goes to a file of that name; what an earlier one said there is no answer of this
    /// one. The prelude is the shell's.
    ChildProcess start(const Arguments& arguments, const std::string& log = "errors",
                       const std::string& prelude = "") const {
        std::filesystem::remove(home / log);
        Arguments command{"sh", "-c", prelude + "exec \"$0\" \"$@\" 2>\"$LOG\"", TESSIVOX_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return {command, environment(log)};
    }
    static std::string textOf(const Path& file) {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::string errors(const std::string& log = "errors") const { return textOf(home / log); }

    static constexpr int kPatience = 20;  // seconds
    static bool becomesTrue(const std::function<bool()>& condition, int patience = kPatience) {
        for (int tries = 0; tries < 100 * patience && !condition(); ++tries) poll(nullptr, 0, 10);
        return condition();
    }
    bool says(const std::string& part, int patience = kPatience) const {
        return becomesTrue([&] { return errors().find(part) != std::string::npos; }, patience);
    }
    static std::vector<Path> filesIn(const Path& folder) {
        if (!std::filesystem::exists(folder)) return {};
        return {std::filesystem::directory_iterator(folder), {}};
    }
    std::vector<Path> temporaries() const { return filesIn(data / "Tessivox/Incomplete"); }
    std::uintmax_t temporarySize() const {
        const auto found = temporaries();
        return found.empty() ? 0 : std::filesystem::file_size(found.front());
    }
    /// Waits until that much of the recording has reached its temporary file.
    bool reaches(std::uintmax_t bytes) const {
        return becomesTrue([&] { return temporarySize() >= bytes; });
    }

    TestFolder folder;
    const Path home = folder.path();
    Path data = home / "data";
    Path recordings = home / "Documents/TessivoxRecordings";
    Path runtime = home / "run";
    std::string soundServer = "unix:/nowhere";
    std::string sessionBus;  ///< its address; none if empty
    std::string serverURL;
    std::string analyticsURL;
};

}  // namespace tessivox::testing
