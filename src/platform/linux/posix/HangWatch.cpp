#include "platform/linux/posix/HangWatch.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <system_error>
#include <utility>

#include "platform/linux/posix/AlternateStack.h"

namespace tessivox::posix {

HangWatch::HangWatch(EventLoop& loop, base::Duration timeout, Report report)
    : loop_(loop),
      pace_(timeout / HangJudge::kRounds),
      report_(std::move(report)),
      mainThread_(::gettid()),
      end_(::eventfd(0, EFD_CLOEXEC)),
      question_(loop.source([this] { isAnswered_ = true; })) {
    if (!end_) throw std::system_error(errno, std::generic_category(), "eventfd");
    thread_ = std::thread([this] { watch(); });
}

HangWatch::~HangWatch() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto put = ::write(end_.get(), &one, sizeof one);
    thread_.join();
}

void HangWatch::watch() {
    const AlternateStack crashStack;
    ::pthread_setname_np(::pthread_self(), "hang-watch");
    HangJudge judge;
    while (!isOverAfterRound()) {
        const bool isAnswered = isAnswered_, isWaiting = loop_.isWaiting();
        if (judge.isHang(isAnswered || isWaiting)) report_(sampler_.sample(mainThread_));
        if (!isAnswered || isWaiting) continue;
        isAnswered_ = false;
        question_->signal();
    }
}

bool HangWatch::isOverAfterRound() const {
    pollfd waiting{end_.get(), POLLIN, 0};
    const auto span = std::chrono::ceil<std::chrono::milliseconds>(pace_);
    return ::poll(&waiting, 1, static_cast<int>(span.count())) > 0;
}

}  // namespace tessivox::posix
