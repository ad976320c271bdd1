#pragma once

#include <string_view>

namespace tessivox::app {

inline constexpr std::string_view kMainHelp =
    R"(Tessivox records meetings: your microphone left, the computer's sound right.

Usage:
  tessivox record [options]    record until q, Ctrl-C or --for ends it
  tessivox devices [--json]    list the microphones
  tessivox --version

Options of every command:
  --verbose    tell on standard error what happens inside
  --help       explain the command
)";

inline constexpr std::string_view kRecordHelp =
    R"(Records the microphone and the computer's sound into one stereo .m4a file.

Usage:
  tessivox record [options]

Options (what is not given is as in the settings; nothing given is stored):
  --for DURATION          stop after that much sound: 30s, 5m, 1h30m, or 90 for seconds
  --output FILE           name of the recording; ends in .m4a, must not exist yet, in a folder that exists
                          (otherwise a name made of date and time, in the recordings folder)
  --mic NAME              microphone by its name or uid (see `tessivox devices`),
                          "default" for the system's, "none" for no microphone
  --system on|off         the computer's sound
  --quality low|medium|high
                          64, 128 or 256 kbit/s
  --separate-tracks       also save each source in a file of its own (..._mic.m4a, ..._system.m4a)
  --verbose               tell on standard error what happens inside

In a terminal, p pauses and resumes, q stops and saves. Ctrl-C, SIGTERM and SIGHUP stop and save too; a second one while
it still saves leaves the recoverable temporary file and ends at once.

The path of the recording is the only thing written to standard output.

Exit status: 0 saved, 1 failed or incomplete, 2 wrong usage, 4 nothing was recorded.
)";

inline constexpr std::string_view kDevicesHelp =
    R"(Lists the microphones, and where the computer's sound is recorded from.

Usage:
  tessivox devices [--json]

Options:
  --json       print one JSON object; its members and their meaning stay as they are, others may be added:
                 "inputs"             array of microphones, each an object of
                   "name"               display name, text
                   "uid"                persistent name, text, which --mic takes
                   "isDefault"          true for the system's default
                 "defaultInput"       uid of the default microphone, or null
                 "systemAudioSource"  name of the source of the computer's sound, or null
  --verbose    tell on standard error what happens inside

Exit status: 0 listed, 1 no sound server, 2 wrong usage.
)";

}  // namespace tessivox::app
