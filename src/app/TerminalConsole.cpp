#include "app/TerminalConsole.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace tessivox::app {
namespace {

/// To the first column, then erase the line (ECMA-48: CR, EL).
constexpr std::string_view kEraseLine = "\r\x1b[K";

/// A reader that has gone away is nobody's failure.
void write(std::FILE* stream, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

}  // namespace

void TerminalConsole::result(std::string_view text) {
    const auto shown = std::exchange(status_, {});
    if (!shown.empty()) write(stderr, kEraseLine);
    write(stdout, text);
    status(shown);
}

void TerminalConsole::message(std::string_view line) {
    const std::string erase(status_.empty() ? std::string_view() : kEraseLine);
    write(stderr, erase + printable(line) + "\n" + status_);
}

std::size_t TerminalConsole::columns() const {
    // Writing into the last column would wrap on some terminals.
    return static_cast<std::size_t>(std::max(terminal_.columns() - 1, 0));
}

void TerminalConsole::status(std::string_view line) {
    if (line == status_) return;
    if (!terminal_.isForeground()) return;
    status_ = line;
    write(stderr, std::string(kEraseLine) + status_);
}

base::Subscription TerminalConsole::onKey(std::function<void(char key)> handler) {
    terminal_.readKeys([this](char key) { keys_.emit(key); });
    return keys_.observe(std::move(handler));
}

}  // namespace tessivox::app
