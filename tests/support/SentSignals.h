#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "services/telemetry/Analytics.h"
#include "support/MemoryPreferences.h"

namespace tessivox::testing {

/// Usage signals that go nowhere, each as "name key=value key=value" with the keys in order.
class SentSignals final : public telemetry::AnalyticsSink {
public:
    std::vector<std::string> all;
    MemoryPreferences store;
    telemetry::Analytics analytics{*this, store, [] { return true; }, "1.0"};

    void initialise(std::string_view) override {}
    void send(std::string_view name, const telemetry::Parameters& parameters) override {
        std::string line(name);
        for (const auto& [key, value] : parameters) line += " " + key + "=" + value;
        all.push_back(line);
    }
    void sendActivation(std::string_view) override {}
};

}  // namespace tessivox::testing
