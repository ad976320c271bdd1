#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "audio/AudioRing.h"
#include "audio/ports/AudioDevices.h"
#include "audio/ports/CaptureBackend.h"
#include "base/Error.h"
#include "base/Scheduler.h"
#include "base/TaskScope.h"

namespace tessivox::audio {

/// Keeps one capture stream running through device changes: after any change it looks for the device to use, and opens
/// a stream anew if that is another one or the old stream has ended. What is lost meanwhile is silence on the timeline,
/// since buffers carry host times. Main thread, except where a handler says otherwise.
class LiveSource final : private CaptureSink {
public:
    struct Handlers {
        /// The device to use, of those there are; empty for none.
        std::function<std::string(const AudioDeviceSnapshot&)> pick;
        std::function<base::Task<std::unique_ptr<CaptureStream>>(std::string, CaptureSink&)> open;
        /// Takes each buffer outside pauses. Capture thread.
        std::function<void(const AudioBuffer&, base::HostTime)> deliver;
        /// Takes the level of each such buffer.
        std::function<void(float)> measured;
        /// Hears of an interruption; the source goes on trying.
        std::function<void(const base::Error&)> failed;
    };

    LiveSource(base::Scheduler& scheduler, AudioDevices& devices, Handlers handlers);
    ~LiveSource() override;

    /// Opens the named device and begins to watch over it. Throws what opening it throws.
    base::Task<void> start(std::string device);
    /// No handler is called any more when it returns.
    void stop();
    bool isCapturing() const { return isCapturing_; }

    /// While paused nothing is handed on, judged by the buffers' own times: what was captured before the pause still
    /// is.
    void setPaused(bool paused);

private:
    static constexpr base::Duration kRestartDelay = std::chrono::milliseconds(300);
    static constexpr base::Duration kRetryDelay = std::chrono::seconds(5);
    static constexpr base::Duration kLatestFuture = std::chrono::seconds(1);
    /// Levels are fetched this often: to be woken for each would cost far more than measuring them.
    static constexpr base::Duration kLevelInterval = std::chrono::milliseconds(100);
    static constexpr std::int64_t kNever = INT64_MAX;

    base::Scheduler& scheduler_;
    AudioDevices& devices_;
    Handlers handlers_;
    bool isCapturing_ = false;
    bool isReconsidering_ = false;
    std::string device_;                             ///< of the present stream
    std::atomic<std::int64_t> pauseBegin_ = kNever;  ///< nanoseconds of host time, of the latest pause
    std::atomic<std::int64_t> pauseEnd_ = kNever;
    AudioRing<float> levels_{1, 256};
    base::Timer levelTick_;
    std::unique_ptr<CaptureStream> stream_;
    base::Timer restart_;
    base::HostTime restartDue_{};
    base::Subscription change_;
    base::TaskScope tasks_;

    void onAudio(const AudioBuffer& buffer, base::HostTime time) override;
    void onEnded(const std::string& reason) override;
    bool isInPause(base::HostTime begin, base::HostTime end) const;
    void deliverLevels();
    void reconsiderSoon(base::Duration delay);
    base::Task<void> reconsider();
    base::Task<std::exception_ptr> reopen(std::string device);
};

/// That no sound server can be reached, with what to do.
base::Error noSoundServer();

}  // namespace tessivox::audio
