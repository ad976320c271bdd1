#include "app/RecoverCommand.h"

#include <cmath>
#include <utility>

#include "base/Text.h"

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;

std::string shareText(const std::string& base, double share) {
    const auto percent = std::to_string(std::lround(std::floor(100 * share)));
    return filled(localized("Recovering {0}: {1} %"), {printable(base), percent});
}

std::string failureText(const std::string& base, const std::string& reason) {
    return filled(localized("The recording \"{0}\" could not be finished and stays for the next time. {1}"),
                  {printable(base), reason});
}

}  // namespace

base::Task<ExitCode> recoverCommand(RecoveryRun& recovery, std::filesystem::path incompleteFolder,
                                    std::filesystem::path recordingsFolder, Console& console) {
    bool hasFailed = false;
    RecoveryRun::Handlers handlers;
    handlers.progressed = [&console](const std::string& base, double share) {
        if (console.showsStatus()) console.status(shareText(base, share));
    };
    handlers.failed = [&](const std::string& base, const std::string& reason) {
        hasFailed = true;
        console.message(failureText(base, reason));
    };
    auto running = recovery.run(std::move(incompleteFolder), std::move(recordingsFolder), std::move(handlers));
    const auto recovered = co_await running;
    console.status("");
    for (const auto& file : recovered) console.result(file.string() + "\n");
    if (recovery.isStopped()) console.message(localized("Interrupted: what is left stays for the next time."));
    if (recovered.empty() && !hasFailed && !recovery.isStopped()) console.message(localized("Nothing to recover."));
    co_return hasFailed || recovery.isStopped() ? ExitCode::failed : ExitCode::done;
}

}  // namespace tessivox::app
