#pragma once

#include <string_view>

#include "services/telemetry/AnalyticsEvent.h"

namespace tessivox::telemetry {

/// Where usage signals go. Nothing reports back: a signal that cannot be sent is the sink's matter. Main thread.
class AnalyticsSink {
public:
    virtual ~AnalyticsSink() = default;
    /// Called once, before any signal.
    virtual void initialise(std::string_view appID) = 0;
    virtual void send(std::string_view name, const Parameters& parameters) = 0;
    /// The user has reached a milestone of using the product.
    virtual void sendActivation(std::string_view featureName) = 0;
};

}  // namespace tessivox::telemetry
