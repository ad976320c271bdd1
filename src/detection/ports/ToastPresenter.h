#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Units.h"

namespace tessivox::detection {

enum class ToastTint { blue, red };
enum class ToastButtonKind { primaryBlue, primaryRed, secondary, plain };

struct ToastButton {
    std::string title;  ///< localized
    std::optional<std::string> systemImage;
    ToastButtonKind kind = ToastButtonKind::secondary;
    /// What the user's answer does; it may destroy the toast.
    std::function<void()> action;
};

/// A small question in a corner of the screen that never takes the focus.
struct ToastContents {
    std::string systemImage;  ///< of the tile at the left
    std::string title;        ///< localized, as all texts here
    std::string subtitle;
    std::vector<ToastButton> buttons;
    std::string announcement;  ///< what a screen reader says
    base::Duration countdown;  ///< what the bar shows; whoever shows the toast closes it
    ToastTint tint = ToastTint::blue;
};

/// A toast on the screen. Destroying it closes it.
class Toast {
public:
    virtual ~Toast() = default;
    virtual bool isVisible() const = 0;
    virtual void setSubtitle(const std::string& subtitle) = 0;
};

/// Shows toasts: a window, a notification, or a line where there is neither. Main thread; never blocks, never throws.
class ToastPresenter {
public:
    virtual ~ToastPresenter() = default;
    virtual std::unique_ptr<Toast> show(ToastContents contents) = 0;
};

}  // namespace tessivox::detection
