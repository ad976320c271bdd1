#include "core/StatusIcon.h"

namespace tessivox::core {

void StatusIcon::subscribe() {
    const auto onChange = [this](bool) { show(); };
    recording_ = state_.isRecording.observe(onChange);
    pause_ = state_.isPaused.observe(onChange);
    update_ = updateAvailable_.observe(onChange);
}

void StatusIcon::show() {
    blinkTimer_.reset();
    if (state_.isRecording.get()) {
        if (!state_.isPaused.get()) return startBlinking();
        image.set({StatusBadge::orange, false});
    } else if (updateAvailable_.get()) {
        image.set({StatusBadge::blue, false});
    } else {
        image.set({StatusBadge::none, true});
    }
}

void StatusIcon::startBlinking() {
    blinkOn_ = true;
    image.set({StatusBadge::red, false});
    blinkTimer_ = scheduler_.every(kBlinkInterval, [this] { blink(); });
}

void StatusIcon::blink() {
    if (!state_.isRecording.get() || state_.isPaused.get()) return;
    blinkOn_ = !blinkOn_;
    // Without its badge the icon stays drawn, so that its symbol does not change colour at each beat.
    image.set({blinkOn_ ? StatusBadge::red : StatusBadge::none, false});
}

}  // namespace tessivox::core
