#pragma once

#include <filesystem>
#include <memory>
#include <stop_token>
#include <vector>

#include "audio/EncodingTools.h"
#include "base/Task.h"
#include "base/TaskQueue.h"

namespace tessivox::app {

/// The recovery of interrupted recordings beside the main loop, on two cores. Main thread.
class RecoveryRun {
public:
    RecoveryRun(base::Runtime& runtime, base::Files& files, audio::AudioEncoderFactory& encoders);
    RecoveryRun(const RecoveryRun&) = delete;
    RecoveryRun& operator=(const RecoveryRun&) = delete;
    /// What is not recovered yet waits for the next time.
    ~RecoveryRun() { stop(); }

    /// The files made.
    base::Task<std::vector<std::filesystem::path>> run(std::filesystem::path incompleteFolder,
                                                       std::filesystem::path recordingsFolder);
    /// Lets run() end soon, with what was made so far.
    void stop() { stop_.request_stop(); }

private:
    std::stop_source stop_;
    // The queue's work uses the helper.
    std::unique_ptr<base::TaskQueue> helper_;
    audio::EncodingTools tools_;
    std::unique_ptr<base::TaskQueue> queue_;
};

}  // namespace tessivox::app
