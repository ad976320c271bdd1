#include "support/RealTimeLoop.h"

#include <chrono>

namespace tessivox::testing {

bool RealTimeLoop::runUntil(const std::function<bool()>& condition, base::Duration limit) {
    bool holds = condition();
    if (holds) return true;
    const auto end = now() + limit;
    const auto check = loop_.every(std::chrono::milliseconds(5), [&] {
        holds = condition();
        if (holds || now() >= end) loop_.quit();
    });
    loop_.run();
    return holds;
}

void RealTimeLoop::runFor(base::Duration span) {
    const auto end = loop_.after(span, [this] { loop_.quit(); });
    loop_.run();
}

}  // namespace tessivox::testing
