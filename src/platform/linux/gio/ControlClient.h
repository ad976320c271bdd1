#pragma once

#include <chrono>
#include <functional>

#include "base/Units.h"
#include "core/ports/RunningProgram.h"
#include "platform/linux/gio/BusThread.h"

namespace tessivox::gio {

class ControlCaller;

/// Reaches the running program over the session bus. One question at a time. A program that does not even tell its
/// status within `patience` counts as hanging, however long it may otherwise take over a request. Main thread.
class ControlClient final : public core::RunningProgram {
public:
    explicit ControlClient(BusThread& bus, base::Duration patience = std::chrono::seconds(5));
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;
    ~ControlClient() override;

    base::Task<core::ProgramAnswer> ask(core::ProgramRequest request) override;

private:
    base::Scheduler& scheduler_;
    const base::Duration patience_;
    InBusThread<ControlCaller> caller_;

    void send(core::ProgramRequest request, std::function<void(const core::ProgramAnswer&)> onAnswer) const;
};

}  // namespace tessivox::gio
