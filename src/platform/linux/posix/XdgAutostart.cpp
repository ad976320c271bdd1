#include "platform/linux/posix/XdgAutostart.h"

#include <cerrno>
#include <string_view>
#include <utility>

namespace tessivox::posix {
namespace {

/// One argument of an Exec key (Desktop Entry Specification 1.5, "The Exec key"): quoted, with field codes defused.
std::string quotedArgument(std::string_view argument) {
    std::string result = "\"";
    for (const char letter : argument) {
        if (std::string_view("\"`$\\").find(letter) != std::string_view::npos) result += '\\';
        if (letter == '%') result += '%';
        result += letter;
    }
    return result + '"';
}

/// A value of type string, whose backslashes are escapes of their own.
std::string escapedValue(std::string_view value) {
    std::string result;
    for (const char letter : value) {
        switch (letter) {
            case '\\':
                result += "\\\\";
                break;
            case '\n':
                result += "\\n";
                break;
            case '\r':
                result += "\\r";
                break;
            case '\t':
                result += "\\t";
                break;
            default:
                result += letter;
        }
    }
    return result;
}

}  // namespace

XdgAutostart::XdgAutostart(base::Files& files, const std::filesystem::path& configuration,
                           std::filesystem::path program, std::vector<std::string> arguments)
    : files_(files), folder_(configuration / "autostart"), entry_(folder_ / "tessivox.desktop") {
    command_ = quotedArgument(program.native());
    for (const auto& argument : arguments) command_ += " " + quotedArgument(argument);
}

void XdgAutostart::registerItem() {
    const std::string text =
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Name=Tessivox\n"
        "Comment=Meeting recorder\n"
        "Exec=" +
        escapedValue(command_) +
        "\n"
        "Terminal=false\n"
        "X-GNOME-Autostart-enabled=true\n";
    // Without the ending, a half-written file is not an entry.
    const auto draft = folder_ / "tessivox.desktop.new";
    files_.makeFolders(folder_);
    files_.removeIfPossible(draft);
    const auto file = files_.create(draft);
    file->append(std::as_bytes(std::span(text)));
    file->sync();
    files_.replace(draft, entry_);
    files_.syncFolder(folder_);
}

void XdgAutostart::unregisterItem() {
    try {
        files_.remove(entry_);
        files_.syncFolder(folder_);
    } catch (const base::FileError& error) {
        if (error.code() != ENOENT) throw;
    }
}

}  // namespace tessivox::posix
