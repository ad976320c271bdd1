#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "detection/CallDetector.h"
#include "support/FakeApplications.h"
#include "support/FakeInputUse.h"
#include "support/ManualRuntime.h"
#include "support/MemoryPreferences.h"
#include "support/SentSignals.h"

namespace tessivox::detection {

using namespace std::chrono_literals;

/// A detector on a desktop that the test makes. `watch()` starts it.
struct DetectionWorld {
    testing::ManualRuntime time;
    testing::FakeInputUse inputUse;
    testing::FakeApplications applications;
    testing::MemoryPreferences preferences;
    testing::SentSignals signals;
    std::optional<CallDetector> detector;
    std::vector<std::string> told;  ///< "started" with an identifier, "ended"
    base::Subscription starts;
    base::Subscription ends;

    void watch() {
        detector.emplace(
            CallDetector::Parts{time, inputUse, applications, preferences, signals.analytics, "com.tessivox.Tessivox"});
        starts = detector->callStarted.observe([this](const auto& app) { told.push_back("started " + app); });
        ends = detector->callEnded.observe([this] { told.push_back("ended"); });
    }
    /// A detector that watches a call of that application.
    void watchCallOf(const std::string& bundleID) {
        inputUse.open(bundleID);
        watch();
        time.advance(1s);
        EXPECT_EQ(told, (Told{"started " + bundleID}));
        told.clear();
    }
    bool isCall() const { return detector->isCallActive.get(); }

    using Told = std::vector<std::string>;
};

class DetectionTest : public ::testing::Test, public DetectionWorld {};

}  // namespace tessivox::detection
