#pragma once

#include <atomic>
#include <memory>
#include <thread>

#include "base/Scheduler.h"
#include "base/Signal.h"
#include "transcription/ports/NetworkPath.h"

namespace tessivox::gio {

/// The network as GLib's monitor sees it: NetworkManager's word where that runs, else whether the kernel has a default
/// route. GLib needs a loop of its own, which runs on a small thread. Until that has looked, the network counts as
/// available. One at a time in a process; main thread.
class GioNetworkPath final : public transcription::NetworkPath {
public:
    /// Throws std::system_error when the system has no threads left.
    explicit GioNetworkPath(base::Scheduler& scheduler);
    GioNetworkPath(const GioNetworkPath&) = delete;
    GioNetworkPath& operator=(const GioNetworkPath&) = delete;
    ~GioNetworkPath() override;

    bool isAvailable() const override { return isAvailable_; }
    base::Subscription onChange(std::function<void(bool isAvailable)> handler) override {
        return changed_.observe(std::move(handler));
    }

private:
    bool isAvailable_ = true;
    base::Signal<bool> changed_;
    std::atomic<bool> latest_ = true;  ///< as the thread last saw it
    std::atomic<bool> ending_ = false;
    std::unique_ptr<base::WakeSource> source_;
    std::thread thread_;

    void serve();
    void tell(bool isAvailable);
    void take();
};

}  // namespace tessivox::gio
