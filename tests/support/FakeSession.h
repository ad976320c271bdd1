#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "detection/ports/SessionWatch.h"

namespace tessivox::testing {

/// A computer that sleeps and whose session ends when the test says so.
class FakeSession final : public detection::SessionWatch {
public:
    int delays = 0;  ///< that are held now
    int taken = 0;   ///< in all

    std::unique_ptr<Delay> delaySleepAndShutdown(const std::string& reason) override {
        if (reason.empty()) throw std::runtime_error("the system shows why it waits");
        ++taken;
        return std::make_unique<Held>(delays);
    }
    base::Subscription onSleep(std::function<void(bool)> handler) override {
        return slept_.observe(std::move(handler));
    }
    base::Subscription onSessionEnd(std::function<void()> handler) override {
        return ended_.observe(std::move(handler));
    }

    void goToSleep() { slept_.emit(true); }
    void wake() { slept_.emit(false); }
    void end() { ended_.emit(); }

private:
    struct Held final : Delay {
        int& count;
        explicit Held(int& held) : count(held) { ++count; }
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;
        ~Held() override { --count; }
    };
    base::Signal<bool> slept_;
    base::Signal<> ended_;
};

}  // namespace tessivox::testing
