#include "platform/linux/gio/ControlService.h"

#include <exception>
#include <utility>

#include "base/Error.h"
#include "base/Text.h"
#include "platform/linux/gio/ControlObject.h"

namespace tessivox::gio {

using core::ProgramFailure;

ControlService::ControlService(BusThread& bus, Handlers handlers)
    : scheduler_(bus.scheduler()),
      handlers_(std::move(handlers)),
      told_(handlers_.status()),
      object_(bus, std::make_shared<ControlObject>(bus, WayHome<ControlService>(scheduler_, self_), told_)),
      requests_(scheduler_) {}

ControlService::~ControlService() = default;

void ControlService::noteChange() {
    if (!telling_) telling_ = scheduler_.after(base::Duration::zero(), [this] { tellChange(); });
}

void ControlService::tellChange() {
    const auto status = handlers_.status();
    if (std::exchange(told_, status) != status)
        object_.run([status](ControlObject& object) { object.showStatus(status); });
}

void ControlService::take(Token token, core::ProgramRequest request) {
    if (request == core::ProgramRequest::status)
        answer(token, handlers_.status());
    else
        requests_.start(carryOut(token, request));
}

void ControlService::takeFiles(Token token, std::vector<std::filesystem::path> files) {
    if (!handlers_.open)
        return answer(token, ProgramFailure{ProgramFailure::Kind::refused,
                                            base::localized("Tessivox opens no files this way: use tessivox import.")});
    handlers_.open(std::move(files));
    answer(token, handlers_.status());
}

base::Task<void> ControlService::carryOut(Token token, core::ProgramRequest request) {
    core::ProgramAnswer outcome;
    try {
        auto work = handlers_.carryOut(request);
        outcome = co_await work;
    } catch (...) {
        outcome = ProgramFailure{ProgramFailure::Kind::refused, base::describe(std::current_exception())};
    }
    answer(token, std::move(outcome));
}

/// The change goes first: who has its answer finds everybody else informed.
void ControlService::answer(Token token, core::ProgramAnswer outcome) {
    tellChange();
    object_.run([token, outcome = std::move(outcome)](ControlObject& object) { object.answer(token, outcome); });
}

}  // namespace tessivox::gio
