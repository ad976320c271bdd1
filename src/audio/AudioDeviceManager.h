#pragma once

#include <cstdint>
#include <vector>

#include "audio/ports/AudioDevices.h"
#include "base/Observable.h"
#include "base/TaskScope.h"

namespace tessivox::audio {

/// The input devices that the settings offer, kept up to date by itself. Main thread.
class AudioDeviceManager {
public:
    AudioDeviceManager(base::Scheduler& scheduler, AudioDevices& devices);

    base::Observable<std::vector<AudioDevice>> inputDevices;
    base::Observable<std::uint32_t> defaultInputDeviceID;  ///< 0: none, or not known

    /// Starts a new reading of the list.
    void refresh();

private:
    AudioDevices& devices_;
    base::Subscription change_;
    base::TaskScope tasks_;

    base::Task<void> readDevices();
};

}  // namespace tessivox::audio
