#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "detection/ports/ToastPresenter.h"

namespace tessivox::testing {

/// A screen with room for one toast, and a user who answers when the test says so.
class FakeToasts final : public detection::ToastPresenter {
public:
    int shown = 0;
    detection::ToastContents last;  ///< with the subtitle as it is now

    std::unique_ptr<detection::Toast> show(detection::ToastContents contents) override {
        ++shown;
        last = std::move(contents);
        return std::make_unique<Shown>(*this);
    }

    bool isUp() const { return up_ != nullptr; }
    /// Its title; empty if none is up.
    std::string title() const { return isUp() ? last.title : ""; }
    void press(const std::string& title) {
        if (!isUp()) throw std::runtime_error("no toast is up");
        for (const auto& button : last.buttons) {
            if (button.title != title) continue;
            const auto action = button.action;  // it may destroy the toast
            return action();
        }
        throw std::runtime_error("the toast has no button \"" + title + "\"");
    }
    std::vector<std::string> buttons() const {
        std::vector<std::string> titles;
        for (const auto& button : last.buttons) titles.push_back(button.title);
        return titles;
    }

private:
    class Shown final : public detection::Toast {
    public:
        explicit Shown(FakeToasts& screen) : screen_(screen) { screen_.up_ = this; }
        Shown(const Shown&) = delete;
        Shown& operator=(const Shown&) = delete;
        ~Shown() override {
            if (screen_.up_ == this) screen_.up_ = nullptr;
        }
        bool isVisible() const override { return screen_.up_ == this; }
        void setSubtitle(const std::string& subtitle) override { screen_.last.subtitle = subtitle; }

    private:
        FakeToasts& screen_;
    };
    Shown* up_ = nullptr;
};

}  // namespace tessivox::testing
