#include "transcription/QuotaAlert.h"

#include <string>
#include <string_view>
#include <utility>

#include "base/Text.h"

namespace tessivox::transcription {
namespace {

constexpr std::string_view kShownKey = "quotaAlertShownForPeriod";
constexpr std::size_t kContactSupport = 1;

core::Alert alert() {
    using base::localized;
    return {core::AlertStyle::warning,
            localized("Transcription Paused"),
            localized("You\u2019ve hit the fair-use limit for this period. Write to us and we\u2019ll sort it out."),
            {localized("OK"), localized("Contact Support")}};
}

}  // namespace

base::Task<void> QuotaAlert::show() {
    auto question = alert();
    const auto answer = co_await alerts_.show(std::move(question));
    if (answer == kContactSupport && contactSupport_) contactSupport_();
}

base::Task<void> QuotaAlert::showOncePerPeriod(std::optional<UsageInfo> usage) {
    const auto period = base::PreferenceValue(usage ? usage->resetsAt.value_or("unknown") : "unknown");
    if (preferences_.value(kShownKey) == period) co_return;
    preferences_.set(kShownKey, period);
    co_await show();
}

}  // namespace tessivox::transcription
