#include "app/RecoveryRun.h"

#include <utility>

#include "audio/RecordingRecovery.h"

namespace tessivox::app {

RecoveryRun::RecoveryRun(base::Runtime& runtime, base::Files& files, audio::AudioEncoderFactory& encoders)
    : helper_(runtime.makeQueue("com.tessivox.recovery.helper", base::QueuePriority::utility)),
      tools_{files, encoders, {helper_.get()}},
      queue_(runtime.makeQueue("com.tessivox.recovery", base::QueuePriority::utility)) {}

base::Task<std::vector<std::filesystem::path>> RecoveryRun::run(std::filesystem::path incompleteFolder,
                                                                std::filesystem::path recordingsFolder) {
    const auto work = [this, incomplete = std::move(incompleteFolder), recordings = std::move(recordingsFolder)] {
        return audio::recoverIncompleteFiles(tools_, incomplete, recordings, stop_.get_token());
    };
    co_return co_await queue_->run(work);
}

}  // namespace tessivox::app
