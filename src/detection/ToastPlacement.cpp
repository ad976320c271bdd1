#include "detection/ToastPlacement.h"

#include <algorithm>

namespace tessivox::detection {
namespace {

constexpr int kRoomBelow = 60;

const Screen* chosenScreen(const std::vector<Screen>& screens, std::optional<std::size_t> mainScreen,
                           const ScreenPoint& pointer) {
    const auto holdsPointer = [&](const Screen& screen) { return screen.frame.contains(pointer); };
    const auto found = std::ranges::find_if(screens, holdsPointer);
    if (found != screens.end()) return &*found;
    if (mainScreen && *mainScreen < screens.size()) return &screens[*mainScreen];
    return screens.empty() ? nullptr : &screens.front();
}

}  // namespace

std::optional<ScreenPoint> toastOrigin(const std::vector<Screen>& screens, std::optional<std::size_t> mainScreen,
                                       const ScreenPoint& pointer, const ScreenSize& toast) {
    const auto* screen = chosenScreen(screens, mainScreen, pointer);
    if (!screen) return std::nullopt;
    const auto& visible = screen->visibleFrame;
    const bool isPanelBelow = screen->frame.bottom() > visible.bottom();
    return ScreenPoint{visible.right() - toast.width,
                       visible.bottom() - toast.height - (isPanelBelow ? 0 : kRoomBelow)};
}

}  // namespace tessivox::detection
