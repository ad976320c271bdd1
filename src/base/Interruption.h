#pragma once

#include <stop_token>

namespace tessivox::base {

/// Asks work on a queue to stop when the object goes: as a local of a task it does so when the task is destroyed, or is
/// done.
class Interruption {
public:
    Interruption() = default;
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption() { stop_.request_stop(); }

    std::stop_token token() const { return stop_.get_token(); }

private:
    std::stop_source stop_;
};

}  // namespace tessivox::base
