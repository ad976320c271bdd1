#include "platform/linux/posix/Mailbox.h"

#include <algorithm>
#include <utility>

namespace tessivox::posix {

struct Mailbox::Source {
    std::function<void()> drain;
    std::atomic<bool> signalled = false;
    // Held while the drain runs; recursive, because a drain may destroy its own source.
    std::recursive_mutex running;
    bool ended = false;
};

class Mailbox::Handle final : public base::WakeSource {
public:
    Handle(std::shared_ptr<Mailbox> mailbox, std::shared_ptr<Source> source)
        : mailbox_(std::move(mailbox)), source_(std::move(source)) {}
    ~Handle() override { mailbox_->removeSource(source_); }
    void signal() noexcept override {
        if (source_->signalled.exchange(true)) return;
        mailbox_->signalled_ = true;
        mailbox_->wake();
    }

private:
    std::shared_ptr<Mailbox> mailbox_;
    std::shared_ptr<Source> source_;
};

void Mailbox::post(std::function<void()> work) {
    {
        const std::lock_guard guard(mutex_);
        if (closed_) return;
        incoming_.push_back(std::move(work));
    }
    wake();
}

std::unique_ptr<base::WakeSource> Mailbox::makeSource(std::function<void()> drain) {
    const auto source = std::make_shared<Source>();
    source->drain = std::move(drain);
    {
        const std::lock_guard guard(mutex_);
        auto sources = std::make_shared<Sources>(*sources_);
        sources->push_back(source);
        sources_ = std::move(sources);
    }
    return std::make_unique<Handle>(shared_from_this(), source);
}

void Mailbox::removeSource(const std::shared_ptr<Source>& source) {
    {
        const std::lock_guard guard(mutex_);
        auto sources = std::make_shared<Sources>(*sources_);
        std::erase(*sources, source);
        sources_ = std::move(sources);
    }
    const std::lock_guard guard(source->running);
    source->ended = true;
}

bool Mailbox::runTurn() {
    awake_.exchange(0);
    takeBatch();
    bool ran = drainSources();
    while (!batch_.empty()) {
        const auto work = std::move(batch_.front());
        batch_.pop_front();
        work();
        drainSources();
        ran = true;
    }
    return ran;
}

void Mailbox::takeBatch() {
    const std::lock_guard guard(mutex_);
    if (batch_.empty()) batch_.swap(incoming_);
}

bool Mailbox::drainSources() {
    if (!signalled_.exchange(false)) return false;
    std::shared_ptr<const Sources> sources;
    {
        const std::lock_guard guard(mutex_);
        sources = sources_;
    }
    for (const auto& source : *sources) {
        if (!source->signalled.exchange(false)) continue;
        const std::lock_guard guard(source->running);
        if (!source->ended) source->drain();
    }
    return true;
}

void Mailbox::close() {
    // What is dropped is destroyed outside the lock: its destructors are anyone's code.
    std::deque<std::function<void()>> dropped;
    {
        const std::lock_guard guard(mutex_);
        closed_ = true;
        dropped.swap(incoming_);
    }
    batch_.clear();
}

}  // namespace tessivox::posix
