#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "app/Console.h"
#include "base/Signal.h"
#include "platform/linux/posix/Terminal.h"

namespace tessivox::app {

/// The console of this process: standard input, output and error. Main thread.
class TerminalConsole final : public Console {
public:
    /// The terminal outlives it.
    explicit TerminalConsole(posix::Terminal& terminal) : terminal_(terminal) {}

    void result(std::string_view text) override;
    void message(std::string_view line) override;
    bool showsStatus() const override { return terminal_.hasScreen(); }
    std::size_t columns() const override;
    void status(std::string_view line) override;
    bool takesKeys() const override { return terminal_.hasKeys(); }
    base::Subscription onKey(std::function<void(char key)> handler) override;

private:
    posix::Terminal& terminal_;
    base::Signal<char> keys_;
    std::string status_;  ///< what stands on the terminal's last line
};

}  // namespace tessivox::app
