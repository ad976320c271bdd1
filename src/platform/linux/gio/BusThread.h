#pragma once

#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "base/Scheduler.h"
#include "platform/linux/gio/BusAddresses.h"

typedef struct _GMainContext GMainContext;

namespace tessivox::gio {

class BusConnection;

/// The thread in which everything of D-Bus happens: GDBus needs a GLib loop, which the program has nowhere else. It
/// sleeps until a bus has something to tell. Made and destroyed in the main thread, after all that uses it is gone.
class BusThread {
public:
    /// Throws std::system_error when the system has no threads left. Connects to nothing by itself.
    BusThread(base::Scheduler& scheduler, BusAddresses addresses);
    BusThread(const BusThread&) = delete;
    BusThread& operator=(const BusThread&) = delete;
    /// What was posted is still done, and what was sent goes out, within a short time.
    ~BusThread();

    /// The main loop.
    base::Scheduler& scheduler() const { return scheduler_; }
    /// Runs it in the bus thread, first in first out. Any thread.
    void post(std::function<void()> work);

    /// The connections; bus thread only.
    BusConnection& session() { return *session_; }
    BusConnection& system() { return *system_; }

private:
    base::Scheduler& scheduler_;
    const BusAddresses addresses_;
    GMainContext* context_;
    bool isOver_ = false;  ///< bus thread
    std::unique_ptr<BusConnection> session_;
    std::unique_ptr<BusConnection> system_;
    std::thread thread_;

    void serve();
    void sendRest(BusConnection& connection);
    void finishCalls();
};

/// The half of an adapter that lives in the bus thread, where its begin() runs first and its end comes last.
template <typename Part>
class InBusThread {
public:
    InBusThread(BusThread& thread, std::shared_ptr<Part> part) : thread_(thread), part_(std::move(part)) {
        run([](Part& begun) { begun.begin(); });
    }
    InBusThread(const InBusThread&) = delete;
    InBusThread& operator=(const InBusThread&) = delete;
    ~InBusThread() {
        thread_.post([part = std::move(part_)]() mutable { part.reset(); });
    }

    void run(std::function<void(Part&)> work) const {
        thread_.post([part = part_, work = std::move(work)] { work(*part); });
    }

private:
    BusThread& thread_;
    std::shared_ptr<Part> part_;
};

/// The way home: carries news to an object of the main thread, as long as that lives.
template <typename Receiver>
class WayHome {
public:
    WayHome(base::Scheduler& scheduler, std::weak_ptr<Receiver> receiver)
        : scheduler_(&scheduler), receiver_(std::move(receiver)) {}

    /// Any thread.
    void operator()(std::function<void(Receiver&)> news) const {
        scheduler_->post([receiver = receiver_, news = std::move(news)] {
            if (const auto living = receiver.lock()) news(*living);
        });
    }

private:
    base::Scheduler* scheduler_;
    std::weak_ptr<Receiver> receiver_;
};

}  // namespace tessivox::gio
