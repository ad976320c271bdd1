#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "detection/ports/InputUseMonitor.h"

namespace tessivox::testing {

/// Applications at a microphone, as a test wants them. Tells of each change at once, unless the sound server is lost:
/// then what was told last holds.
class FakeInputUse final : public detection::InputUseMonitor {
public:
    /// The application begins to take sound; the pid of its process is given back.
    std::int32_t open(const std::string& bundleID) { return open(nextPid_++, bundleID); }
    std::int32_t open(std::int32_t pid, const std::string& bundleID) {
        now_.processes.push_back({pid, bundleID});
        update();
        return pid;
    }
    /// All processes of that application stop.
    void close(const std::string& bundleID) {
        std::erase_if(now_.processes, [&](const auto& process) { return process.bundleID == bundleID; });
        update();
    }
    void setProcesses(std::vector<detection::InputProcess> processes) {
        now_.processes = std::move(processes);
        update();
    }
    /// Whether the device runs, whoever takes sound from it; absent again: it runs while anybody does.
    void setRunning(std::optional<bool> isRunning) {
        now_.isRunning = isRunning;
        update();
    }
    /// Another default input, 0 or none.
    void setDefault(std::optional<detection::DeviceID> device) {
        default_ = device;
        update();
    }
    /// The processes become others, and nobody is told.
    void slip(std::vector<detection::InputProcess> processes) {
        now_.processes = std::move(processes);
        told_ = now_;
    }
    /// Tells as if something had changed.
    void tell() const { changed_.emit(); }
    /// Tells of a default input that is the same as before.
    void tellDefault() const { defaultChanged_.emit(); }

    void loseServer() { isLost_ = true; }
    void regainServer() {
        isLost_ = false;
        update();
    }
    /// No device can be watched from now on.
    void refuseWatching() { isWatchable_ = false; }
    int watchers() const { return watchers_; }

    // InputUseMonitor
    std::optional<detection::DeviceID> defaultInputDevice() const override { return toldDefault_; }
    std::optional<bool> isRunningSomewhere(detection::DeviceID device) const override {
        if (device == 0 || device != toldDefault_) return std::nullopt;
        return told_.isRunning.value_or(!told_.processes.empty());
    }
    std::vector<detection::InputProcess> inputProcesses() const override { return told_.processes; }
    Watch watch(detection::DeviceID, std::function<void()> handler) override {
        if (!isWatchable_) return {};
        ++watchers_;
        const auto told = std::make_shared<base::Subscription>(changed_.observe(std::move(handler)));
        return {true, base::Subscription([this, told] {
                    told->reset();
                    --watchers_;
                })};
    }
    base::Subscription onDefaultInputChange(std::function<void()> handler) override {
        return defaultChanged_.observe(std::move(handler));
    }

private:
    struct Use {
        std::vector<detection::InputProcess> processes;
        std::optional<bool> isRunning;
        bool operator==(const Use&) const = default;
    };
    Use now_;
    Use told_;
    std::optional<detection::DeviceID> default_ = 1;
    std::optional<detection::DeviceID> toldDefault_ = default_;
    bool isLost_ = false;
    bool isWatchable_ = true;
    std::int32_t nextPid_ = 1000;
    int watchers_ = 0;
    base::Signal<> changed_;
    base::Signal<> defaultChanged_;

    void update() {
        if (isLost_) return;
        const bool isOther = std::exchange(told_, now_) != now_;
        if (std::exchange(toldDefault_, default_) != default_) defaultChanged_.emit();
        if (isOther) changed_.emit();
    }
};

}  // namespace tessivox::testing
