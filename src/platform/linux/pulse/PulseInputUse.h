#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "base/Signal.h"
#include "base/TaskScope.h"
#include "base/Timer.h"
#include "detection/ports/InputUseMonitor.h"
#include "platform/linux/pulse/InputStreams.h"
#include "platform/linux/pulse/SoundServerLink.h"

namespace tessivox::pulse {

/// Who takes sound from a microphone, as the sound server lists it. It only reads the server's lists, after its events:
/// a stream of our own would switch a headset to its call mode. Main thread.
class PulseInputUse final : public detection::InputUseMonitor {
public:
    /// How long what was known holds after the server was lost: it restarts, then programs come back one by one.
    static constexpr base::Duration kHold = std::chrono::seconds(10);
    /// Stands for the default input while there is none.
    static constexpr detection::DeviceID kNoInput = 0xFFFFFFFF;

    /// The link outlives it.
    PulseInputUse(SoundServerLink& link, IdentifyProcess identify, base::Duration hold = kHold);

    std::optional<detection::DeviceID> defaultInputDevice() const override { return told_.device; }
    std::optional<bool> isRunningSomewhere(detection::DeviceID device) const override;
    std::vector<detection::InputProcess> inputProcesses() const override { return told_.processes; }
    [[nodiscard]] Watch watch(detection::DeviceID device, std::function<void()> handler) override;
    [[nodiscard]] base::Subscription onDefaultInputChange(std::function<void()> handler) override {
        return deviceChanged_.observe(std::move(handler));
    }

private:
    struct Use {
        detection::DeviceID device = kNoInput;
        std::vector<detection::InputProcess> processes;
    };
    using Owner = std::optional<detection::InputProcess>;

    SoundServerLink& link_;
    IdentifyProcess identify_;
    base::Duration holdSpan_;
    Defaults defaults_;
    std::vector<Source> sources_;
    std::vector<SourceOutput> streams_;
    std::map<std::uint32_t, Owner> owners_;  ///< of the microphone streams of the last reading, by index
    std::set<ServerNews> old_;               ///< the lists that are to be read anew
    bool isLost_ = true;                     ///< the server has not answered since it was last lost
    bool isReading_ = false;
    bool isReadAgain_ = false;
    Use seen_;                                      ///< at the last reading
    std::vector<detection::InputProcess> awaited_;  ///< while the hold runs: who was there before and is not back yet
    Use told_;
    base::Signal<> processesChanged_;
    base::Signal<> deviceChanged_;
    base::Timer hold_;
    base::Timer retry_;
    base::Subscription news_;
    base::TaskScope tasks_;

    void take(ServerNews news);
    void look();
    base::Task<void> keepReading();
    base::Task<void> readOnce();
    base::Task<void> readLists(std::shared_ptr<Connection> connection);
    void setOld(ServerNews news);
    base::Task<void> readOwners(std::shared_ptr<Connection> connection, std::vector<SourceOutput> streams);
    void lose();
    void endHold();
    std::vector<detection::InputProcess> presentProcesses(const std::vector<SourceOutput>& streams) const;
    detection::DeviceID presentDevice() const;
    void tell();
};

}  // namespace tessivox::pulse
