#pragma once

#include "services/telemetry/ports/AnalyticsSink.h"

namespace tessivox::telemetry {

/// Where signals go unless an endpoint is configured: nowhere.
class NoAnalyticsSink final : public AnalyticsSink {
public:
    void initialise(std::string_view) override {}
    void send(std::string_view, const Parameters&) override {}
    void sendActivation(std::string_view) override {}
};

}  // namespace tessivox::telemetry
