#pragma once

#include <functional>
#include <string>

#include "app/Console.h"
#include "base/Scheduler.h"

namespace tessivox::app {

/// The status of work that takes a while, on a terminal and as long as this lives: "Uploading 00:12". Main thread.
class LongWork {
public:
    LongWork(base::Scheduler& scheduler, Console& console);
    LongWork(const LongWork&) = delete;
    LongWork& operator=(const LongWork&) = delete;
    ~LongWork();

    /// Names what is done now, in ASCII; another stage counts its time from its start.
    void setStage(const std::string& stage);
    /// What there is to say instead of the time, such as "41 %"; empty for the time.
    void setDetail(const std::string& detail);
    const std::string& stage() const { return stage_; }

private:
    base::Scheduler& scheduler_;
    Console& console_;
    std::string stage_;
    std::string detail_;
    base::HostTime since_;
    base::Timer redraw_;

    void draw();
};

}  // namespace tessivox::app
