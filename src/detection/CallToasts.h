#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/Units.h"
#include "core/AppSettings.h"
#include "detection/ports/ToastPresenter.h"

namespace tessivox::detection {

/// How long a toast waits for an answer. Silence is the safe one: nothing begins, nothing ends.
inline constexpr base::Duration kToastPatience = std::chrono::seconds(15);

/// The question at a call's start.
struct StartCallToastView {
    std::optional<std::string> source;         ///< name of the application in the call
    std::optional<std::string> ignoreAppName;  ///< name of the application that may be excluded for good
    std::function<void()> onConfirm;
    std::function<void()> onDismiss;
    std::function<void()> onIgnoreApp;
};
ToastContents startCallToast(const StartCallToastView& view, const core::AppSettings& settings);

/// The question at a call's end.
struct EndCallToastView {
    std::function<void()> onStop;
    std::function<void()> onKeep;
};
ToastContents endCallToast(const EndCallToastView& view, double recordedSeconds);
/// The line that keeps counting while the toast is up.
std::string endCallSubtitle(double recordedSeconds);

}  // namespace tessivox::detection
