#include "app/LongWork.h"

#include "base/Units.h"
#include "core/AppState.h"

namespace tessivox::app {
namespace {

using namespace std::chrono_literals;

constexpr base::Duration kRedrawInterval = 250ms;

}  // namespace

LongWork::LongWork(base::Scheduler& scheduler, Console& console)
    : scheduler_(scheduler), console_(console), since_(scheduler.now()) {
    if (console_.showsStatus()) redraw_ = scheduler_.every(kRedrawInterval, [this] { draw(); });
}

LongWork::~LongWork() { console_.status(""); }

void LongWork::setStage(const std::string& stage) {
    if (stage == stage_) return;
    stage_ = stage;
    detail_.clear();
    since_ = scheduler_.now();
    draw();
}

void LongWork::setDetail(const std::string& detail) {
    detail_ = detail;
    draw();
}

void LongWork::draw() {
    if (!redraw_ || stage_.empty()) return;
    const auto elapsed = core::AppState::formattedDuration(base::toSeconds(scheduler_.now() - since_));
    console_.status((stage_ + " " + (detail_.empty() ? elapsed : detail_)).substr(0, console_.columns()));
}

}  // namespace tessivox::app
