#include "detection/CallDetector.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <tuple>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"
#include "detection/CallTables.h"
#include "services/telemetry/ParameterText.h"

namespace tessivox::detection {
namespace {

constexpr std::size_t kMostTriggeringApps = 5;
constexpr std::string_view kUnknownApp = "unknown";

void logLine(const std::string& message) { base::log("CallDetector: " + message); }

template <typename Describe>
std::string listText(const std::vector<InputProcess>& processes, Describe describe) {
    std::string text;
    for (const auto& process : processes) text += (text.empty() ? "" : ", ") + describe(process);
    return "[" + text + "]";
}

void logUse(const std::vector<InputProcess>& all, const std::vector<InputProcess>& external) {
    if (!base::isLogging()) return;
    const auto withPID = [](const auto& process) { return process.bundleID + "(" + std::to_string(process.pid) + ")"; };
    const auto plain = [](const auto& process) { return process.bundleID; };
    logLine("Device running. All input processes: " + listText(all, withPID) +
            ", external: " + listText(external, plain));
}

std::vector<std::string> distinctIDs(const std::vector<InputProcess>& sorted, std::size_t most) {
    std::vector<std::string> ids;
    for (const auto& process : sorted) {
        if (ids.size() == most) break;
        if (ids.empty() || ids.back() != process.bundleID) ids.push_back(process.bundleID);
    }
    return ids;
}

}  // namespace

CallDetector::CallDetector(const Parts& parts)
    : parts_(parts), exclusions_({parts.applications, parts.preferences, parts.analytics}) {
    startMonitoring();
}

void CallDetector::startMonitoring() {
    monitoredDeviceID_ = parts_.inputUse.defaultInputDevice().value_or(0);
    if (monitoredDeviceID_ == 0) return logLine("No default input device found");
    addDeviceListener();
    defaultListener_ = parts_.inputUse.onDefaultInputChange([this] { handleDefaultInputChange(); });
}

void CallDetector::addDeviceListener() {
    auto watch = parts_.inputUse.watch(monitoredDeviceID_, [this] { checkProcesses(); });
    if (!watch.isWatched) logLine("Failed to add property listener");
    deviceListener_ = std::move(watch.subscription);
    checkProcesses();
}

void CallDetector::handleDefaultInputChange() {
    const auto device = parts_.inputUse.defaultInputDevice().value_or(0);
    if (device == monitoredDeviceID_) return;
    deviceListener_.reset();
    monitoredDeviceID_ = device;
    if (device != 0) addDeviceListener();
}

void CallDetector::checkProcesses() {
    if (!parts_.inputUse.isRunningSomewhere(monitoredDeviceID_).value_or(false)) {
        logLine("Device not running anywhere");
        return scheduleVerdict(false);
    }
    const auto all = parts_.inputUse.inputProcesses();
    auto external = externalProcesses(all);
    logUse(all, external);
    if (external.empty()) return scheduleVerdict(false);
    // Whom the call is named after stays as it was when it began.
    if (!microphoneInUse.get()) chooseTrigger(std::move(external));
    scheduleVerdict(true);
}

std::vector<InputProcess> CallDetector::externalProcesses(const std::vector<InputProcess>& all) const {
    std::vector<InputProcess> external;
    std::ranges::copy_if(all, std::back_inserter(external), [&](const auto& process) {
        return process.bundleID != parts_.myBundleID && !exclusions_.isExcludedProcess(process);
    });
    return external;
}

void CallDetector::chooseTrigger(std::vector<InputProcess> external) {
    std::ranges::stable_sort(
        external, {}, [](const auto& process) { return std::tuple(appTier(process.bundleID), process.bundleID); });
    triggeringBundleID_ = external.front().bundleID;
    triggeringPID_ = external.front().pid;
    triggeringApps_ = distinctIDs(external, kMostTriggeringApps);
}

void CallDetector::scheduleVerdict(bool isInUse) {
    debounce_.reset();
    if (isInUse == microphoneInUse.get()) return;
    debounce_ = parts_.scheduler.after(kDebounceInterval, [this, isInUse] { setMicrophoneInUse(isInUse); });
}

void CallDetector::setMicrophoneInUse(bool isInUse) {
    const bool wasInUse = microphoneInUse.get();
    microphoneInUse.set(isInUse);
    if (isInUse && !wasInUse) beginCall();
    if (!isInUse && wasInUse) endCall();
}

void CallDetector::beginCall() {
    isCallActive.set(true);
    callStartedAt_ = parts_.scheduler.now();
    logLine("External process started using microphone");
    startPolling();
    callStarted.emit(triggeringBundleID_);
}

void CallDetector::endCall() {
    isCallActive.set(false);
    parts_.analytics.track(telemetry::AnalyticsEvent::callEnded, callContextProperties());
    callStartedAt_.reset();
    logLine("External process stopped using microphone");
    stopPolling();
    callEnded.emit();
}

void CallDetector::startPolling() {
    stopPolling();
    const auto seconds = std::chrono::duration<double>(kPollingInterval).count();
    logLine("Starting polling timer (every " + base::fixedNumber(seconds, 1) + "s)");
    polling_ = parts_.scheduler.every(kPollingInterval, [this] { checkProcesses(); });
}

void CallDetector::stopPolling() {
    if (!polling_) return;
    logLine("Stopping polling timer");
    polling_.reset();
}

std::optional<std::string> CallDetector::callDisplayName() const {
    std::vector<RunningApplication> candidates;
    for (const auto& process : externalProcesses(parts_.inputUse.inputProcesses())) {
        auto application = parts_.applications.runningApplication(process.pid);
        if (application && application->isRegular) candidates.push_back(std::move(*application));
    }
    if (candidates.empty()) return std::nullopt;
    const auto active = std::ranges::find(candidates, true, &RunningApplication::isActive);
    const auto& shown = active == candidates.end() ? candidates.front() : *active;
    if (shown.localizedName.empty()) return std::nullopt;
    return shown.localizedName;
}

telemetry::Parameters CallDetector::callContextProperties() const {
    telemetry::Parameters properties{{"trigger_app", triggeringBundleID_}};
    if (callStartedAt_)
        properties.emplace("hold_sec", telemetry::wholeSecondsText(parts_.scheduler.now() - *callStartedAt_));
    return properties;
}

std::optional<CallDetector::App> CallDetector::excludableApp() const {
    if (triggeringBundleID_ == kUnknownApp || appTier(triggeringBundleID_) == kBrowserTier) return std::nullopt;
    const auto host = parts_.applications.hostApp(triggeringPID_);
    if (!host || appTier(host->bundleID) == kBrowserTier) return std::nullopt;
    auto name = parts_.applications.bundleDisplayName(host->url);
    if (!name) {
        const auto running = parts_.applications.runningApplication(triggeringPID_);
        if (running) name = running->localizedName;
    }
    if (!name || name->empty()) return std::nullopt;
    return App{host->bundleID, std::move(*name)};
}

void CallDetector::addIgnoredApp(const std::string& bundleID, const std::string& name) {
    exclusions_.addIgnoredApp(bundleID, name);
}

}  // namespace tessivox::detection
