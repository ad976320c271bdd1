#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "base/Signal.h"

namespace tessivox::app {

/// Where a command speaks. Main thread. Texts are UTF-8; a reader that has gone away is nobody's failure.
class Console {
public:
    virtual ~Console() = default;

    /// Writes a text to standard output as it is.
    virtual void result(std::string_view text) = 0;
    /// Writes a line to standard error, above the status if there is one. It may hold foreign text, such as the path in
    /// an error's sentence.
    virtual void message(std::string_view line) = 0;

    /// Whether somebody looks at a terminal, so that a status is worth showing.
    virtual bool showsStatus() const = 0;
    /// The terminal's width.
    virtual std::size_t columns() const = 0;
    /// Shows one line of ASCII in the place of the one before; empty removes it.
    virtual void status(std::string_view line) = 0;

    /// Whether keys are read one at a time.
    virtual bool takesKeys() const = 0;
    /// Calls the handler with each key pressed.
    virtual base::Subscription onKey(std::function<void(char key)> handler) = 0;
};

/// Foreign text, such as a device's name, without the control characters that would steer a terminal.
std::string printable(std::string_view text);

/// A text as a shell takes it for one word (POSIX, 2.2.2), for commands that a message proposes.
std::string shellWord(std::string_view text);

}  // namespace tessivox::app
