#include "services/telemetry/CrashEvent.h"

#include <algorithm>

namespace tessivox::telemetry {
namespace {

bool isHang(const CrashException& exception) { return exception.type.starts_with(kAppHanging); }

template <typename Stacks>
bool hasOwnCode(const Stacks& stacks) {
    return std::ranges::any_of(stacks,
                               [](const auto& stack) { return std::ranges::any_of(stack.frames, &StackFrame::inApp); });
}

}  // namespace

std::optional<CrashEvent> beforeSend(CrashEvent event) {
    const bool isUninformative =
        std::ranges::any_of(event.exceptions, isHang) && !hasOwnCode(event.exceptions) && !hasOwnCode(event.threads);
    if (isUninformative) return std::nullopt;
    return event;
}

}  // namespace tessivox::telemetry
