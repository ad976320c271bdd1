#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "base/Signal.h"
#include "core/ports/RunningProgram.h"
#include "platform/linux/gio/BusConnection.h"
#include "platform/linux/gio/BusThread.h"

namespace tessivox::gio {

/// Carries requests to the running program, once there is a connection. Bus thread.
class ControlCaller {
public:
    using Handler = std::function<void(const core::ProgramAnswer&)>;

    explicit ControlCaller(BusThread& bus) : bus_(bus) {}

    void begin() {}
    void call(core::ProgramRequest request, Handler handler);

private:
    struct Question {
        core::ProgramRequest request;
        Handler handler;
    };

    BusThread& bus_;
    std::vector<Question> questions_;
    BusScope scope_;
    base::Subscription state_;

    void follow(BusConnection::State state);
    void send(const Question& question);
};

}  // namespace tessivox::gio
