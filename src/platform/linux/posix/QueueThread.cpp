#include "platform/linux/posix/QueueThread.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cassert>
#include <utility>

#include "platform/linux/posix/AlternateStack.h"
#include "platform/linux/posix/Mailbox.h"

namespace tessivox::posix {
namespace {

constexpr std::size_t kLongestThreadName = 15;  // bytes; see pthread_setname_np(3)
constexpr int kUtilityNice = 5;

void nameThisThread(const std::string& label) {
    const auto name = label.substr(label.rfind('.') + 1).substr(0, kLongestThreadName);
    ::pthread_setname_np(::pthread_self(), name.c_str());
}

/// On Linux each thread has a nice value of its own. Without privileges it can only be made less favourable.
void applyPriority(base::QueuePriority priority) {
    switch (priority) {
        case base::QueuePriority::userInteractive:
        case base::QueuePriority::userInitiated:
            return;
        case base::QueuePriority::utility:
            ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kUtilityNice);
            return;
    }
}

}  // namespace

class QueueThread::Inbox final : public Mailbox {
public:
    void wait() const noexcept { awake_.wait(0); }

private:
    void notify() noexcept override { awake_.notify_one(); }
};

QueueThread::QueueThread(base::Scheduler& home, std::string label, base::QueuePriority priority)
    : home_(home), inbox_(std::make_shared<Inbox>()) {
    thread_ = std::thread([this, label = std::move(label), priority] { serve(label, priority); });
}

QueueThread::~QueueThread() {
    assert(std::this_thread::get_id() != thread_.get_id());
    ending_ = true;
    inbox_->wake();
    thread_.join();
}

void QueueThread::post(std::function<void()> work) { inbox_->post(std::move(work)); }

std::unique_ptr<base::WakeSource> QueueThread::source(std::function<void()> drain) {
    return inbox_->makeSource(std::move(drain));
}

void QueueThread::serve(const std::string& label, base::QueuePriority priority) {
    const AlternateStack crashStack;
    nameThisThread(label);
    applyPriority(priority);
    // The end is looked for after a turn, which is what takes back a wake-up.
    while (!ending_) {
        inbox_->wait();
        while (inbox_->runTurn()) {
        }
    }
    while (inbox_->runTurn()) {
    }
    inbox_->close();
}

}  // namespace tessivox::posix
