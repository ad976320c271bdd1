#include "app/RecoveryRun.h"

#include <utility>

#include "audio/RecordingRecovery.h"

namespace tessivox::app {
namespace {

/// Brings what is told on the queue to the main thread, as long as somebody listens there.
audio::RecoveryObserver observerOf(const std::shared_ptr<RecoveryRun::Handlers>& handlers, base::Scheduler& scheduler) {
    const std::weak_ptr listener(handlers);
    return {[listener, &scheduler](const std::string& base, double share) {
                scheduler.post([listener, base, share] {
                    const auto told = listener.lock();
                    if (told && told->progressed) told->progressed(base, share);
                });
            },
            [listener, &scheduler](const std::string& base, const base::Error& reason) {
                scheduler.post([listener, base, text = reason.description()] {
                    const auto told = listener.lock();
                    if (told && told->failed) told->failed(base, text);
                });
            }};
}

}  // namespace

RecoveryRun::RecoveryRun(base::Runtime& runtime, base::Files& files, audio::AudioEncoderFactory& encoders)
    : scheduler_(runtime.scheduler()),
      helper_(runtime.makeQueue("com.tessivox.recovery.helper", base::QueuePriority::utility)),
      tools_{files, encoders, {helper_.get()}},
      queue_(runtime.makeQueue("com.tessivox.recovery", base::QueuePriority::utility)) {}

base::Task<std::vector<std::filesystem::path>> RecoveryRun::run(std::filesystem::path incompleteFolder,
                                                                std::filesystem::path recordingsFolder,
                                                                Handlers handlers) {
    const auto listening = std::make_shared<Handlers>(std::move(handlers));
    const auto work = [this, incomplete = std::move(incompleteFolder), recordings = std::move(recordingsFolder),
                       observer = observerOf(listening, scheduler_)] {
        return audio::recoverIncompleteFiles(tools_, incomplete, recordings, stop_.get_token(), observer);
    };
    co_return co_await queue_->run(work);
}

}  // namespace tessivox::app
