#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace tessivox::detection {

// All in pixels of the desktop, y downwards.

struct ScreenPoint {
    int x = 0;
    int y = 0;
    bool operator==(const ScreenPoint&) const = default;
};

struct ScreenSize {
    int width = 0;
    int height = 0;
};

struct ScreenRectangle {
    ScreenPoint origin;  ///< the upper left corner
    ScreenSize size;

    int right() const { return origin.x + size.width; }    ///< the first column that is not in it
    int bottom() const { return origin.y + size.height; }  ///< the first row that is not in it
    bool contains(const ScreenPoint& point) const {
        return point.x >= origin.x && point.x < right() && point.y >= origin.y && point.y < bottom();
    }
};

struct Screen {
    ScreenRectangle frame;
    ScreenRectangle visibleFrame;  ///< without panels and docks
};

/// Where a toast's upper left corner goes: the lower right corner of the screen with the pointer, else of the main one,
/// else of the first; on a panel at the bottom, or with some room below if there is none. Absent if there is no screen.
std::optional<ScreenPoint> toastOrigin(const std::vector<Screen>& screens, std::optional<std::size_t> mainScreen,
                                       const ScreenPoint& pointer, const ScreenSize& toast);

}  // namespace tessivox::detection
