#include "platform/linux/desktop/ProgramName.h"

#include <algorithm>
#include <array>

#include "platform/linux/desktop/ProcessFiles.h"
#include "platform/linux/desktop/UntrustedText.h"

namespace tessivox::desktop {
namespace {

constexpr std::array<std::string_view, 40> kInterpreters{"python",
                                                         "pypy",
                                                         "node",
                                                         "nodejs",
                                                         "deno",
                                                         "bun",
                                                         "java",
                                                         "bash",
                                                         "sh",
                                                         "dash",
                                                         "zsh",
                                                         "fish",
                                                         "ksh",
                                                         "perl",
                                                         "ruby",
                                                         "php",
                                                         "lua",
                                                         "luajit",
                                                         "gjs",
                                                         "gjs-console",
                                                         "electron",
                                                         "nw",
                                                         "mono",
                                                         "dotnet",
                                                         "wine",
                                                         "wine-preloader",
                                                         "wine64-preloader",
                                                         "guile",
                                                         "tclsh",
                                                         "wish",
                                                         "rscript",
                                                         "julia",
                                                         "ocaml",
                                                         "racket",
                                                         "busybox",
                                                         "env",
                                                         "cjs",
                                                         "xvfb-run",
                                                         "qml",
                                                         "qemu-x86_64"};
constexpr std::array<std::string_view, 15> kSoundCommands{
    "pacat", "parec", "parecord",       "arecord",         "ffmpeg",       "pw-cat",   "pw-record", "pw-loopback",
    "rec",   "sox",   "gst-launch-1.0", "gst-launch-0.10", "jack_capture", "ecasound", "avconv"};
constexpr std::array<std::string_view, 5> kHelpers{"webkitwebprocess", "webkitgtkprocess", "qtwebengineprocess",
                                                   "bwrap", "xdg-dbus-proxy"};

bool isOneOf(const auto& names, std::string_view program) {
    return std::ranges::find(names, lowerCased(program)) != names.end();
}

std::string_view withoutVersion(std::string_view program) {
    const auto last = program.find_last_not_of("0123456789.-");
    return last == std::string_view::npos ? program : program.substr(0, last + 1);
}

/// "tool" of "/usr/share/tool/tool.py"; "chat" of "/opt/chat/app.asar".
std::string scriptName(std::string path) {
    constexpr std::string_view archive = "/app.asar";
    if (path.ends_with(archive)) path.resize(path.size() - archive.size());
    auto name = baseName(path);
    for (const std::string_view ending : {".py", ".js", ".mjs", ".sh", ".jar", ".pl", ".rb", ".exe"}) {
        if (name.size() > ending.size() && name.ends_with(ending)) name.resize(name.size() - ending.size());
    }
    return name;
}

bool isAssignment(const std::string& word) { return word.find('=') != std::string::npos && !word.starts_with('/'); }

}  // namespace

bool isInterpreter(std::string_view program) {
    return isOneOf(kInterpreters, program) || isOneOf(kInterpreters, withoutVersion(program));
}

bool isSoundCommand(std::string_view program) { return isOneOf(kSoundCommands, program); }

bool isHelper(std::string_view program) { return isOneOf(kHelpers, program); }

std::string programName(const std::vector<std::string>& command) {
    bool isScript = false;
    for (const auto& word : command) {
        if (isScript && (word.empty() || word.starts_with('-') || isAssignment(word))) {
            // What stands after these is code or a module, not a file.
            if (word == "-c" || word == "-m" || word == "-e") return {};
            continue;
        }
        const auto name = isScript ? scriptName(word) : baseName(word);
        if (!isInterpreter(name)) return name;
        isScript = true;
    }
    return {};
}

}  // namespace tessivox::desktop
