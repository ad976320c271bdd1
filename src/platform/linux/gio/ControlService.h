#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Task.h"
#include "base/TaskScope.h"
#include "core/ports/RunningProgram.h"
#include "platform/linux/gio/BusThread.h"

namespace tessivox::gio {

class ControlObject;

/// What others reach of the running program on the session bus: requests to start, stop and so on, its status, and
/// signals when that changes; and org.freedesktop.Application, by which desktops bring a program forward. Main thread.
class ControlService {
public:
    struct Handlers {
        /// Carries a request out and gives the status after it: for `start` once the recording has started, for `stop`
        /// once it is saved, with the saved file. What it throws is the refusal, told by the error's sentence. Never
        /// asked for `status`.
        std::function<base::Task<core::ProgramStatus>(core::ProgramRequest request)> carryOut;
        /// What the program does just now.
        std::function<core::ProgramStatus()> status;
        /// Files were given to the program; absent if it takes none.
        std::function<void(std::vector<std::filesystem::path> files)> open;
        /// Tells the user, in a sentence, why the program cannot be reached.
        std::function<void(const std::string& sentence)> say;
    };

    ControlService(BusThread& bus, Handlers handlers);
    ControlService(const ControlService&) = delete;
    ControlService& operator=(const ControlService&) = delete;
    ~ControlService();

    /// Call it when the status has changed, other than by the passing of time. Many changes within a turn are one.
    void noteChange();

private:
    friend class ControlObject;
    using Token = std::uint64_t;  ///< names a request that waits for its answer

    base::Scheduler& scheduler_;
    Handlers handlers_;
    core::ProgramStatus told_;
    base::Timer telling_;
    std::shared_ptr<ControlService> self_{this, [](auto*) {}};
    InBusThread<ControlObject> object_;
    base::TaskScope requests_;

    void tellChange();
    void take(Token token, core::ProgramRequest request);
    void takeFiles(Token token, std::vector<std::filesystem::path> files);
    base::Task<void> carryOut(Token token, core::ProgramRequest request);
    void answer(Token token, core::ProgramAnswer outcome);
};

}  // namespace tessivox::gio
