#pragma once

#include <deque>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/Completion.h"
#include "core/ports/Alerts.h"

namespace tessivox::testing {

/// A user who is shown alerts and answers when the test says so.
class FakeAlerts final : public core::Alerts {
public:
    std::vector<core::Alert> shown;

    base::Task<std::size_t> show(core::Alert alert) override {
        shown.push_back(std::move(alert));
        const base::Completion<std::size_t> answer;
        open_.push_back(answer);
        co_return co_await answer;
    }

    bool isOpen() const { return !open_.empty(); }
    /// Chooses the button of that text in the oldest open alert.
    void choose(const std::string& button) {
        const auto& buttons = shown.at(shown.size() - open_.size()).buttons;
        const auto answer = open_.front();
        open_.pop_front();
        for (std::size_t index = 0; index < buttons.size(); ++index) {
            if (buttons[index] == button) return answer.succeed(index);
        }
        throw std::runtime_error("the alert has no button \"" + button + "\"");
    }

private:
    std::deque<base::Completion<std::size_t>> open_;
};

}  // namespace tessivox::testing
