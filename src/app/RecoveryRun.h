#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "audio/EncodingTools.h"
#include "base/Task.h"
#include "base/TaskQueue.h"

namespace tessivox::app {

/// The recovery of interrupted recordings beside the main loop, on two cores. Main thread.
class RecoveryRun {
public:
    /// Both are called until run() has ended; either may be absent.
    struct Handlers {
        std::function<void(const std::string& base, double share)> progressed;
        std::function<void(const std::string& base, const std::string& reason)> failed;
    };

    RecoveryRun(base::Runtime& runtime, base::Files& files, audio::AudioEncoderFactory& encoders);
    RecoveryRun(const RecoveryRun&) = delete;
    RecoveryRun& operator=(const RecoveryRun&) = delete;
    /// What is not recovered yet waits for the next time.
    ~RecoveryRun() { stop(); }

    /// The files made.
    base::Task<std::vector<std::filesystem::path>> run(std::filesystem::path incompleteFolder,
                                                       std::filesystem::path recordingsFolder, Handlers handlers);
    /// Lets run() end soon, with what was made so far.
    void stop() { stop_.request_stop(); }
    bool isStopped() const { return stop_.stop_requested(); }

private:
    base::Scheduler& scheduler_;
    std::stop_source stop_;
    std::unique_ptr<base::TaskQueue> helper_;
    audio::EncodingTools tools_;
    std::unique_ptr<base::TaskQueue> queue_;  ///< ends before what its work uses
};

}  // namespace tessivox::app
