#include "platform/linux/posix/StackSampler.h"

#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cassert>
#include <cerrno>
#include <ctime>

#include "platform/linux/posix/InterruptedStack.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {
namespace {

// A signal that is ignored where nobody handles it, so that a late one does no harm.
constexpr int kSignal = SIGURG;

// A handler reaches nothing but globals.
InterruptedStack stack;
std::atomic<bool> isAsked = false;
// Orders the stack's contents, for ThreadSanitizer too, which knows no sem_clockwait.
std::atomic<bool> isTaken = false;
sem_t isAnswered;

void answer(int, siginfo_t*, void* context) {
    const auto error = errno;
    if (isAsked.exchange(false)) {
        stack.take(context);
        isTaken = true;
        ::sem_post(&isAnswered);
    }
    errno = error;
}

bool isAnsweredInTime() {
    timespec limit{};
    ::clock_gettime(CLOCK_MONOTONIC, &limit);
    limit.tv_sec += 1;
    if (retry([&] { return ::sem_clockwait(&isAnswered, CLOCK_MONOTONIC, &limit); }) == 0) return true;
    if (isAsked.exchange(false)) return false;
    // It has begun to answer after all.
    return retry([] { return ::sem_wait(&isAnswered); }) == 0;
}

}  // namespace

StackSampler::StackSampler() {
    InterruptedStack::warmUp();
    ::sem_init(&isAnswered, 0, 0);
    struct sigaction action {};
    action.sa_sigaction = answer;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    ::sigaction(kSignal, &action, &before_);
}

StackSampler::~StackSampler() { ::sigaction(kSignal, &before_, nullptr); }

std::span<void* const> StackSampler::sample(pid_t thread) {
    assert(thread != ::gettid());
    isAsked = true;
    ::syscall(SYS_tgkill, ::getpid(), thread, kSignal);
    return isAnsweredInTime() && isTaken.exchange(false) ? stack.addresses() : std::span<void* const>();
}

}  // namespace tessivox::posix
