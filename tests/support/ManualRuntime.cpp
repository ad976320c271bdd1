#include "support/ManualRuntime.h"

#include <algorithm>

namespace tessivox::testing {

bool ManualRuntime::Mailbox::runOne() {
    if (isStalled) return false;
    for (Source* source : sources) {
        if (!std::exchange(source->signalled, false)) continue;
        source->drain();
        return true;
    }
    if (work.empty()) return false;
    const auto next = std::move(work.front());
    work.pop_front();
    next();
    return true;
}

std::unique_ptr<base::WakeSource> ManualRuntime::Mailbox::makeSource(const std::shared_ptr<Mailbox>& self,
                                                                     std::function<void()> drain) {
    struct Handle final : base::WakeSource {
        std::shared_ptr<Mailbox> mailbox;
        Source source;
        ~Handle() override { std::erase(mailbox->sources, &source); }
        void signal() noexcept override { source.signalled = true; }
    };
    auto handle = std::make_unique<Handle>();
    handle->mailbox = self;
    handle->source.drain = std::move(drain);
    self->sources.push_back(&handle->source);
    return handle;
}

class ManualRuntime::Queue final : public base::TaskQueue {
public:
    Queue(base::Scheduler& home, std::shared_ptr<Mailbox> mailbox) : home_(home), mailbox_(std::move(mailbox)) {}
    ~Queue() override {
        mailbox_->isStalled = false;
        while (mailbox_->runOne()) {
        }
    }
    void post(std::function<void()> work) override { mailbox_->work.push_back(std::move(work)); }
    std::unique_ptr<base::WakeSource> source(std::function<void()> drain) override {
        return mailbox_->makeSource(mailbox_, std::move(drain));
    }
    base::Scheduler& home() override { return home_; }

private:
    base::Scheduler& home_;
    std::shared_ptr<Mailbox> mailbox_;
};

ManualRuntime::ManualRuntime() = default;
ManualRuntime::~ManualRuntime() = default;

std::unique_ptr<base::TaskQueue> ManualRuntime::makeQueue(std::string label, base::QueuePriority) {
    auto mailbox = std::make_shared<Mailbox>();
    queues_.emplace_back(std::move(label), mailbox);
    return std::make_unique<Queue>(*this, std::move(mailbox));
}

base::Timer ManualRuntime::after(Duration delay, std::function<void()> handler) {
    return timers_.add(now_ + delay, Duration::zero(), std::move(handler));
}

base::Timer ManualRuntime::every(Duration interval, std::function<void()> handler) {
    return timers_.add(now_ + interval, interval, std::move(handler));
}

std::unique_ptr<base::WakeSource> ManualRuntime::source(std::function<void()> drain) {
    return mailbox_->makeSource(mailbox_, std::move(drain));
}

void ManualRuntime::settle() {
    for (bool busy = true; busy;) {
        busy = mailbox_->runOne() || timers_.runOneDue(now_);
        for (std::size_t index = 0; index < queues_.size(); ++index) {
            if (const auto mailbox = queues_[index].second.lock()) busy = mailbox->runOne() || busy;
        }
    }
    std::erase_if(queues_, [](const auto& queue) { return queue.second.expired(); });
}

void ManualRuntime::advance(Duration span) {
    const auto end = now_ + span;
    settle();
    while (true) {
        const auto due = timers_.nextDue();
        if (!due || *due > end) break;
        now_ = std::max(now_, *due);
        settle();
    }
    now_ = end;
    settle();
}

void ManualRuntime::stall(const std::string& label, bool stalled) {
    for (const auto& [name, mailbox] : queues_) {
        if (const auto alive = mailbox.lock(); alive && name == label) alive->isStalled = stalled;
    }
    if (!stalled) settle();
}

}  // namespace tessivox::testing
