#include "platform/linux/gio/ControlClient.h"

#include <memory>
#include <utility>

#include "base/Completion.h"
#include "platform/linux/gio/ControlCaller.h"

namespace tessivox::gio {
namespace {

using core::ProgramAnswer;
using core::ProgramFailure;
using core::ProgramRequest;

bool mayTakeLong(ProgramRequest request) {
    return request == ProgramRequest::start || request == ProgramRequest::stop || request == ProgramRequest::toggle;
}

}  // namespace

ControlClient::ControlClient(BusThread& bus, base::Duration patience)
    : scheduler_(bus.scheduler()), patience_(patience), caller_(bus, std::make_shared<ControlCaller>(bus)) {}

ControlClient::~ControlClient() = default;

/// A quick request is answered in time, or nobody is alive there. Of one that may take long only the program knows how
/// long, so it is asked for its status from time to time; what that says does not matter.
base::Task<ProgramAnswer> ControlClient::ask(ProgramRequest request) {
    const base::Completion<ProgramAnswer> answer;
    const auto settle = [answer](const ProgramAnswer& got) { answer.succeed(got); };
    send(request, settle);
    const auto isHeard = std::make_shared<bool>(mayTakeLong(request));
    const auto listen = [isHeard](const ProgramAnswer&) { *isHeard = true; };
    const auto giveUp = [answer] { answer.succeed(ProgramFailure{ProgramFailure::Kind::noAnswer, {}}); };
    const auto look = [this, isHeard, listen, giveUp] {
        if (std::exchange(*isHeard, false))
            send(ProgramRequest::status, listen);
        else
            scheduler_.post(giveUp);
    };
    const auto watching = scheduler_.every(patience_, look);
    co_return co_await answer;
}

void ControlClient::send(ProgramRequest request, std::function<void(const ProgramAnswer&)> onAnswer) const {
    caller_.run([&scheduler = scheduler_, request, onAnswer = std::move(onAnswer)](ControlCaller& caller) {
        caller.call(request, [&scheduler, onAnswer](const ProgramAnswer& got) {
            scheduler.post([onAnswer, got] { onAnswer(got); });
        });
    });
}

}  // namespace tessivox::gio
