#include "audio/LiveSource.h"

#include "audio/AudioLevelMonitor.h"
#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::audio {

LiveSource::LiveSource(base::Scheduler& scheduler, AudioDevices& devices, Handlers handlers)
    : scheduler_(scheduler), devices_(devices), handlers_(std::move(handlers)), tasks_(scheduler) {}

LiveSource::~LiveSource() { stop(); }

base::Task<void> LiveSource::start(std::string device) {
    if (isCapturing_) co_return;
    auto opening = handlers_.open(device, *this);
    stream_ = co_await opening;
    device_ = device;
    isCapturing_ = true;
    levelTick_ = scheduler_.every(kLevelInterval, [this] { deliverLevels(); });
    change_ = devices_.onChange([this] { reconsiderSoon(kRestartDelay); });
}

void LiveSource::stop() {
    isCapturing_ = false;
    change_.reset();
    restart_.reset();
    levelTick_.reset();
    stream_.reset();
    setPaused(false);
}

void LiveSource::setPaused(bool paused) {
    const auto now = scheduler_.now().time_since_epoch().count();
    // Written in this order, a buffer that is judged meanwhile is at worst taken as outside the pause; the writer,
    // which places it, knows better.
    if (paused) {
        pauseBegin_ = kNever;
        pauseEnd_ = kNever;
        pauseBegin_ = now;
    } else if (pauseEnd_ == kNever) {
        pauseEnd_ = now;
    }
}

bool LiveSource::isInPause(base::HostTime begin, base::HostTime end) const {
    return begin.time_since_epoch().count() >= pauseBegin_ && end.time_since_epoch().count() <= pauseEnd_;
}

void LiveSource::onAudio(const AudioBuffer& buffer, base::HostTime time) {
    if (time > scheduler_.now() + kLatestFuture || isInPause(time, time + buffer.duration())) return;
    handlers_.deliver(buffer, time);
    levels_.push(AudioLevelMonitor::bufferLevel(buffer), {});
}

void LiveSource::deliverLevels() {
    while (const auto* level = levels_.front()) {
        handlers_.measured(level->header);
        levels_.pop();
    }
}

void LiveSource::onEnded(const std::string& reason) {
    stream_.reset();
    handlers_.failed(base::Error("LiveSource", 1, reason));
    reconsiderSoon(kRestartDelay);
}

void LiveSource::reconsiderSoon(base::Duration delay) {
    // A pending look is not put off by a flood of changes, only brought forward.
    const auto due = scheduler_.now() + delay;
    if (restart_ && restartDue_ <= due) return;
    restartDue_ = due;
    restart_ = scheduler_.after(delay, [this] {
        if (isReconsidering_) return reconsiderSoon(kRestartDelay);
        isReconsidering_ = true;
        tasks_.start(reconsider());
    });
}

base::Task<void> LiveSource::reconsider() {
    const auto snapshot = co_await devices_.snapshot();
    const auto device = handlers_.pick(snapshot);
    const bool isGood = stream_ && device == device_;
    if (isCapturing_ && !device.empty() && !isGood) {
        base::log("DEBUG: Audio configuration changed, restarting capture...");
        const auto error = co_await reopen(device);
        if (error) {
            base::log("DEBUG: Failed to restart capture: " + base::describe(error));
            handlers_.failed(base::Error("LiveSource", 2, base::describe(error)));
            reconsiderSoon(kRetryDelay);
        } else {
            base::log("DEBUG: Capture restarted successfully on new device");
        }
    }
    isReconsidering_ = false;
}

base::Task<std::exception_ptr> LiveSource::reopen(std::string device) {
    stream_.reset();
    try {
        auto opening = handlers_.open(device, *this);
        auto stream = co_await opening;
        if (isCapturing_) stream_ = std::move(stream);
        device_ = device;
        co_return nullptr;
    } catch (...) {
        // A failure is an answer here: the source goes on trying.
        co_return std::current_exception();
    }
}

base::Error noSoundServer() {
    return {"sound server", 1,
            base::localized("No sound server can be reached: start PipeWire or PulseAudio and try again.")};
}

}  // namespace tessivox::audio
