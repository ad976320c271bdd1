#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Console.h"

namespace tessivox::app {

/// Remembers what was said, and presses keys.
class FakeConsole final : public Console {
public:
    std::string output;
    std::vector<std::string> messages;
    std::vector<std::string> statuses;
    bool isTerminal = true;
    base::Signal<char> keys;

    void result(std::string_view text) override { output += text; }
    void message(std::string_view line) override { messages.emplace_back(line); }
    bool showsStatus() const override { return isTerminal; }
    std::size_t columns() const override { return 80; }
    void status(std::string_view line) override { statuses.emplace_back(line); }
    bool takesKeys() const override { return isTerminal; }
    base::Subscription onKey(std::function<void(char)> handler) override { return keys.observe(std::move(handler)); }

    bool said(std::string_view part) const {
        for (const auto& line : messages) {
            if (line.find(part) != std::string::npos) return true;
        }
        return false;
    }
};

}  // namespace tessivox::app
