#pragma once

#include <functional>
#include <optional>

#include "base/Task.h"
#include "base/ports/Preferences.h"
#include "core/ports/Alerts.h"
#include "transcription/ServerRecords.h"

namespace tessivox::transcription {

/// Tells the user that the server's limit is reached. Main thread.
class QuotaAlert {
public:
    /// `contactSupport` opens a message to those who run the server.
    QuotaAlert(core::Alerts& alerts, base::Preferences& preferences, std::function<void()> contactSupport)
        : alerts_(alerts), preferences_(preferences), contactSupport_(std::move(contactSupport)) {}

    /// Ends with the user's answer.
    base::Task<void> show();
    /// The same, unless it was shown for this period of the quota before.
    base::Task<void> showOncePerPeriod(std::optional<UsageInfo> usage);

private:
    core::Alerts& alerts_;
    base::Preferences& preferences_;
    std::function<void()> contactSupport_;
};

}  // namespace tessivox::transcription
