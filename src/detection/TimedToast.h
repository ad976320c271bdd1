#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "base/Scheduler.h"
#include "detection/CallToasts.h"
#include "detection/ports/ToastPresenter.h"

namespace tessivox::detection {

/// At most one toast on the screen, with the timer that ends its patience. Main thread.
class TimedToast {
public:
    TimedToast(base::Scheduler& scheduler, ToastPresenter& presenter) : scheduler_(scheduler), presenter_(presenter) {}

    bool isVisible() const { return toast_ && toast_->isVisible(); }
    /// The timer alone decides; what the toast shows of it is not asked.
    void show(ToastContents contents, std::function<void()> onTimeout) {
        toast_ = presenter_.show(std::move(contents));
        dismissTimer_ = scheduler_.after(kToastPatience, std::move(onTimeout));
    }
    void setSubtitle(const std::string& subtitle) {
        if (toast_) toast_->setSubtitle(subtitle);
    }
    void dismiss() {
        dismissTimer_.reset();
        toast_.reset();
    }

private:
    base::Scheduler& scheduler_;
    ToastPresenter& presenter_;
    std::unique_ptr<Toast> toast_;
    base::Timer dismissTimer_;
};

}  // namespace tessivox::detection
