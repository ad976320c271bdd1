#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "platform/linux/desktop/DesktopApplications.h"
#include "support/TestFolder.h"

namespace tessivox::desktop {

/// A small /proc and a folder of desktop files.
class DesktopTree {
public:
    std::filesystem::path proc() const { return folder_.path() / "proc"; }
    std::filesystem::path applications() const { return folder_.path() / "applications"; }

    DesktopTree() {
        std::filesystem::create_directories(proc());
        std::filesystem::create_directories(applications());
    }

    struct Process {
        std::string program;  ///< path
        std::int32_t parent = 1;
        std::string group = "0::/user.slice/session.scope";
        std::string command = {};       ///< words with a blank between
        std::int32_t numberInside = 0;  ///< in a sandbox; 0 outside
    };
    void addProcess(std::int32_t pid, const Process& process, int startTime = 100) const {
        const auto folder = proc() / std::to_string(pid);
        std::filesystem::create_directories(folder / "root");
        std::filesystem::remove(folder / "exe");
        if (!process.program.empty()) std::filesystem::create_symlink(process.program, folder / "exe");
        write(folder / "stat", std::to_string(pid) + " (a) b) S " + std::to_string(process.parent) +
                                   " 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 " + std::to_string(startTime) +
                                   " 23\n");
        write(folder / "cgroup", process.group + "\n");
        auto words = process.command.empty() ? process.program : process.command;
        for (auto& letter : words) letter = letter == ' ' ? '\0' : letter;
        write(folder / "cmdline", words + '\0');
        const auto inside = process.numberInside ? "\t" + std::to_string(process.numberInside) : std::string();
        write(folder / "status", "Name:\ta\nNSpid:\t" + std::to_string(pid) + inside + "\nThreads:\t1\n");
    }

    std::filesystem::path addEntry(const std::string& id, const std::string& lines) const {
        const auto path = applications() / (id + ".desktop");
        std::filesystem::create_directories(path.parent_path());
        write(path, "[Desktop Entry]\nType=Application\n" + lines + "\n");
        return path;
    }

    static void write(const std::filesystem::path& path, std::string_view text) {
        std::ofstream(path, std::ios::binary) << text;
    }

private:
    testing::TestFolder folder_;
};

}  // namespace tessivox::desktop
