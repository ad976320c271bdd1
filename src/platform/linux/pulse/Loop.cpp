#include "platform/linux/pulse/Loop.h"

#include "platform/linux/pulse/PulseError.h"

namespace tessivox::pulse {

Loop::Loop() : loop_(pa_threaded_mainloop_new()) {
    if (!loop_) throw makeError(PulseFailure::noResources);
    pa_threaded_mainloop_set_name(loop_, "tessivox-sound");
    if (pa_threaded_mainloop_start(loop_) < 0) {
        pa_threaded_mainloop_free(loop_);
        throw makeError(PulseFailure::noResources);
    }
}

Loop::~Loop() {
    pa_threaded_mainloop_stop(loop_);
    pa_threaded_mainloop_free(loop_);
}

}  // namespace tessivox::pulse
