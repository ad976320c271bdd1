#include "platform/linux/posix/CrashHandler.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <csignal>
#include <string_view>

#include "platform/linux/posix/InterruptedStack.h"

namespace tessivox::posix {
namespace {

struct FatalSignal {
    int number;
    std::string_view name;
};
constexpr std::array kFatalSignals{FatalSignal{SIGSEGV, "SIGSEGV"}, FatalSignal{SIGABRT, "SIGABRT"},
                                   FatalSignal{SIGBUS, "SIGBUS"},   FatalSignal{SIGFPE, "SIGFPE"},
                                   FatalSignal{SIGILL, "SIGILL"},   FatalSignal{SIGSYS, "SIGSYS"},
                                   FatalSignal{SIGTRAP, "SIGTRAP"}};

// A handler reaches nothing but globals.
const ReportSource* reportSource = nullptr;
std::array<struct sigaction, kFatalSignals.size()> before;
std::atomic<pid_t> crashingThread = 0;

std::size_t indexOf(int signal) noexcept {
    const auto found = std::ranges::find(kFatalSignals, signal, &FatalSignal::number);
    return static_cast<std::size_t>(found - kFatalSignals.begin());
}

void writeReport(int signal, const siginfo_t& info, void* context) noexcept {
    Incident incident;
    incident.type = kFatalSignals[indexOf(signal)].name;
    incident.signal = signal;
    incident.code = info.si_code;
    // The others fill the place of the address with the sender.
    if (info.si_code > 0) incident.address = info.si_addr;
    incident.instruction = InterruptedStack::instruction(context);
    incident.thread = ::gettid();
    incident.threadName = nameOfThisThread();
    CrashReportFile report(*reportSource, incident);
    InterruptedStack stack;
    stack.take(context);
    report.writeFrames(stack.addresses());
}

/// The signal waits until the handler has returned and then finds the stack as it was.
void raiseAgain(int signal, siginfo_t& info) noexcept {
    ::sigaction(signal, &before[indexOf(signal)], nullptr);
    if (::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), ::gettid(), signal, &info) == 0) return;
    ::syscall(SYS_tgkill, ::getpid(), ::gettid(), signal);
}

void onFatalSignal(int signal, siginfo_t* info, void* context) {
    const auto error = errno;
    pid_t none = 0;
    if (crashingThread.compare_exchange_strong(none, ::gettid())) {
        writeReport(signal, *info, context);
    } else if (none != ::gettid()) {
        // The thread that came first ends the process.
        for (;;) ::pause();
    }
    raiseAgain(signal, *info);
    errno = error;
}

}  // namespace

CrashHandler::CrashHandler(const ReportSource& source) {
    assert(!reportSource && "one crash handler a process");
    InterruptedStack::warmUp();
    reportSource = &source;
    struct sigaction action {};
    action.sa_sigaction = onFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    // While the handler runs, the kernel lets a second fault end the process.
    for (const auto& signal : kFatalSignals) ::sigaddset(&action.sa_mask, signal.number);
    for (const auto& signal : kFatalSignals) ::sigaction(signal.number, &action, &before[indexOf(signal.number)]);
}

CrashHandler::~CrashHandler() {
    for (const auto& signal : kFatalSignals) ::sigaction(signal.number, &before[indexOf(signal.number)], nullptr);
    reportSource = nullptr;
}

}  // namespace tessivox::posix
