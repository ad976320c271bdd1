#include "platform/linux/gio/ControlCaller.h"

#include <utility>

#include "platform/linux/gio/ControlProtocol.h"

namespace tessivox::gio {
namespace {

using core::ProgramAnswer;
using core::ProgramFailure;
using core::ProgramRequest;
using core::ProgramStatus;

BusMethod methodFor(ProgramRequest request) {
    if (request == ProgramRequest::activate)
        return {kControlName, kControlPath, kApplicationInterface, methodOf(request), "()"};
    return {kControlName, kControlPath, kControlInterface, methodOf(request), "(a{sv})"};
}

GVariant* parametersFor(ProgramRequest request) {
    return request == ProgramRequest::activate ? g_variant_new("(a{sv})", nullptr) : nullptr;
}

ProgramAnswer answerIn(const BusReply& reply) {
    switch (reply.failure) {
        case BusReply::Failure::none:
            break;
        case BusReply::Failure::noOwner:
            return ProgramFailure{ProgramFailure::Kind::notRunning, {}};
        case BusReply::Failure::ended:
            return ProgramFailure{ProgramFailure::Kind::ended, {}};
        case BusReply::Failure::other:
            return ProgramFailure{ProgramFailure::Kind::refused, reply.message};
    }
    if (g_variant_n_children(reply.value.get()) == 0) return ProgramStatus{};
    const Variant dictionary(g_variant_get_child_value(reply.value.get(), 0));
    return statusOf(dictionary.get());
}

}  // namespace

void ControlCaller::call(ProgramRequest request, Handler handler) {
    questions_.push_back({request, std::move(handler)});
    bus_.session().connect();
    state_ = bus_.session().state.observe([this](BusConnection::State state) { follow(state); });
}

void ControlCaller::follow(BusConnection::State state) {
    if (state == BusConnection::State::connecting) return;
    for (const auto& question : std::exchange(questions_, {})) {
        if (state == BusConnection::State::open)
            send(question);
        else
            question.handler(ProgramFailure{ProgramFailure::Kind::noBus, {}});
    }
}

void ControlCaller::send(const Question& question) {
    bus_.session().call(methodFor(question.request), parametersFor(question.request), scope_,
                        [handler = question.handler](const BusReply& reply) { handler(answerIn(reply)); });
}

}  // namespace tessivox::gio
