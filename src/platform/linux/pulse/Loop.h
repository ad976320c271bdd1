#pragma once

#include <pulse/thread-mainloop.h>

namespace tessivox::pulse {

/// A thread that serves one connection to the sound server. Made and destroyed on the main thread; destroying it joins
/// the thread.
class Loop {
public:
    Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    ~Loop();

    pa_mainloop_api* api() const { return pa_threaded_mainloop_get_api(loop_); }

    /// Keeps the loop's callbacks from running. Every call into libpulse from another thread needs it; callbacks run
    /// under it already and must not take it.
    class Lock {
    public:
        explicit Lock(const Loop& loop) : loop_(loop.loop_) { pa_threaded_mainloop_lock(loop_); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        ~Lock() { pa_threaded_mainloop_unlock(loop_); }

    private:
        pa_threaded_mainloop* loop_;
    };

private:
    pa_threaded_mainloop* loop_;
};

}  // namespace tessivox::pulse
