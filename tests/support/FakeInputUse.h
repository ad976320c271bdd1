#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "detection/ports/InputUseMonitor.h"

namespace tessivox::testing {

/// Applications at a microphone, as a test wants them. Tells of each change at once.
class FakeInputUse final : public detection::InputUseMonitor {
public:
    /// The application begins to take sound; the pid of its process is given back.
    std::int32_t open(const std::string& bundleID) { return open(nextPid_++, bundleID); }
    std::int32_t open(std::int32_t pid, const std::string& bundleID) {
        change([&] { processes_.push_back({pid, bundleID}); });
        return pid;
    }
    /// All processes of that application stop.
    void close(const std::string& bundleID) {
        change([&] { std::erase_if(processes_, [&](const auto& process) { return process.bundleID == bundleID; }); });
    }
    void closeAll() { setProcesses({}); }
    void setProcesses(std::vector<detection::InputProcess> processes) {
        change([&] { processes_ = std::move(processes); });
    }
    /// The processes become others, and nobody is told.
    void slip(std::vector<detection::InputProcess> processes) { processes_ = std::move(processes); }
    /// Tells as if something had changed.
    void tell() const { changed_.emit(); }

    /// Another default input, 0 or none.
    void setDefault(std::optional<detection::DeviceID> device) {
        if (std::exchange(default_, device) != device) defaultChanged_.emit();
    }
    /// Whether the device runs, whoever takes sound from it; absent again: it runs while anybody does.
    void setRunning(std::optional<bool> isRunning) {
        isRunning_ = isRunning;
        tell();
    }
    /// The sound server answers no question and tells of nothing.
    void setLost(bool isLost) { isLost_ = isLost; }
    /// No device can be watched from now on.
    void refuseWatching() { isWatchable_ = false; }
    int watchers() const { return watchers_; }

    // InputUseMonitor
    std::optional<detection::DeviceID> defaultInputDevice() const override { return default_; }
    std::optional<bool> isRunningSomewhere(detection::DeviceID device) const override {
        if (isLost_ || device != default_) return std::nullopt;
        return isRunning_.value_or(!processes_.empty());
    }
    std::vector<detection::InputProcess> inputProcesses() const override { return processes_; }
    Watch watch(detection::DeviceID, std::function<void()> handler) override {
        if (!isWatchable_) return {};
        ++watchers_;
        return {true, base::Subscription(
                          [this, told = std::make_shared<base::Subscription>(changed_.observe(std::move(handler)))] {
                              told->reset();
                              --watchers_;
                          })};
    }
    base::Subscription onDefaultInputChange(std::function<void()> handler) override {
        return defaultChanged_.observe(std::move(handler));
    }

private:
    std::vector<detection::InputProcess> processes_;
    std::optional<detection::DeviceID> default_ = 1;
    std::optional<bool> isRunning_;
    bool isLost_ = false;
    bool isWatchable_ = true;
    std::int32_t nextPid_ = 1000;
    int watchers_ = 0;
    base::Signal<> changed_;
    base::Signal<> defaultChanged_;

    template <typename Change>
    void change(Change apply) {
        const auto before = processes_;
        apply();
        if (processes_ != before && !isLost_) changed_.emit();
    }
};

}  // namespace tessivox::testing
