#include "app/DetectionKit.h"

#include <string>
#include <utility>

#include "base/Text.h"
#include "platform/linux/gio/BusAddresses.h"
#include "platform/linux/posix/XdgFolders.h"
#include "transcription/TranscriptionRun.h"

namespace tessivox::app {
namespace {

using Path = std::filesystem::path;

constexpr auto kMyIdentifier = "com.tessivox.Tessivox";

}  // namespace

DetectionKit::DetectionKit(Surroundings around)
    : around_(std::move(around)),
      recording_(around_.recorder),
      left_(around_.preferences),
      identities_(entries_),
      applications_(entries_, identities_),
      inputUse_(around_.recorder.server,
                [this](const pulse::Declaration& declaration) { return identify(declaration); }),
      bus_(around_.recorder.loop, gio::busAddresses(posix::processEnvironment())),
      consoleToasts_(around_.console),
      toasts_(bus_, consoleToasts_),
      detector_(
          {around_.recorder.loop, inputUse_, applications_, around_.preferences, around_.analytics, kMyIdentifier}),
      startPrompt_({around_.recorder.loop, around_.recorder.settings, around_.recorder.state, detector_, toasts_,
                    around_.analytics, around_.crashReporter, around_.canRecord}),
      stopPrompt_({around_.recorder.loop, around_.recorder.state, toasts_, around_.analytics, around_.crashReporter}),
      controller_(controllerParts()),
      session_(bus_),
      guard_({around_.recorder.loop, session_, controller_, recording_.recorder(), around_.endProgram}),
      control_(around_.recorder.state, controller_) {
    controller_.wireCallDetection();
    offerControl();
}

detection::RecordingController::Parts DetectionKit::controllerParts() {
    return {around_.recorder.loop,
            around_.recorder.settings,
            around_.recorder.state,
            recording_.recorder(),
            detector_,
            startPrompt_,
            stopPrompt_,
            around_.storage,
            around_.analytics,
            around_.crashReporter,
            around_.alerts,
            [&service = around_.transcription](Path url, base::Duration length) {
                return service.transcribeAndSummarize(std::move(url), transcription::TranscriptionSource::automatic,
                                                      length);
            },
            [this](const Path& url, base::Duration length) { left_.leave(url, length); },
            [this](const Path& file) { around_.console.message(printable(file.string())); }};
}

std::optional<detection::InputProcess> DetectionKit::identify(const pulse::Declaration& declaration) {
    desktop::ProcessClues clues;
    clues.pid = declaration.pid;
    clues.securityPID = declaration.securityPID;
    clues.binary = declaration.binary;
    clues.applicationID = declaration.applicationID;
    clues.portalID = declaration.portalID;
    const auto identity = identities_.identify(clues);
    if (!identity) return std::nullopt;
    return detection::InputProcess{identity->pid, identity->identifier};
}

void DetectionKit::offerControl() {
    gio::ControlService::Handlers handlers;
    handlers.carryOut = [this](core::ProgramRequest request) { return control_.carryOut(request); };
    handlers.status = [this] { return control_.status(); };
    handlers.say = [this](const std::string& sentence) { around_.console.message(sentence); };
    service_.emplace(bus_, std::move(handlers));
    changes_ = control_.onChange([this] { service_->noteChange(); });
}

}  // namespace tessivox::app
