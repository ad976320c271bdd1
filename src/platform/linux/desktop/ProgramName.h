#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tessivox::desktop {

/// Whether a program of this name runs other people's programs, so that its name says nothing of them: python3.11,
/// electron28, java, bash.
bool isInterpreter(std::string_view program);

/// Whether it is a tool of the command line that takes sound for whoever calls it: parec, ffmpeg.
bool isSoundCommand(std::string_view program);

/// Whether it works for its parent process, whose name counts: WebKitWebProcess, bwrap.
bool isHelper(std::string_view program);

/// Name of the program that a command runs, without folders: an interpreter's script, what env(1) starts. Empty if an
/// interpreter runs nothing that has a name.
std::string programName(const std::vector<std::string>& command);

}  // namespace tessivox::desktop
