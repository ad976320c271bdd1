#include "platform/linux/gio/GioNetworkPath.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/EventLoop.h"
#include "support/TurnLoop.h"

namespace tessivox::gio {
namespace {

using namespace std::chrono_literals;

bool raiseLoopback(int socket) {
    ifreq interface {};
    std::strcpy(interface.ifr_name, "lo");
    interface.ifr_flags = IFF_UP | IFF_RUNNING | IFF_LOOPBACK;
    return ::ioctl(socket, SIOCSIFFLAGS, &interface) == 0;
}

/// Adds (SIOCADDRT) or removes (SIOCDELRT) a default route over the loopback interface.
bool changeRoute(int socket, unsigned long request) {
    static char device[] = "lo";
    rtentry route{};
    route.rt_dst.sa_family = AF_INET;
    route.rt_genmask.sa_family = AF_INET;
    route.rt_gateway.sa_family = AF_INET;
    route.rt_flags = RTF_UP;
    route.rt_dev = device;
    return ::ioctl(socket, request, &route) == 0;
}

/// In a process with a network of its own: 0 if all was told as it was, else the number of the step that was not.
int watchTheRoute(int socket) {
    posix::EventLoop loop;
    auto path = std::make_unique<GioNetworkPath>(loop);
    std::vector<bool> told;
    auto subscription = path->onChange([&](bool isAvailable) { told.push_back(isAvailable); });
    const auto hasTold = [&](std::size_t count) {
        return testing::runUntil(loop, [&] { return told.size() == count; });
    };
    if (!path->isAvailable()) return 1;
    if (!hasTold(1) || told.back() || path->isAvailable()) return 2;
    if (!changeRoute(socket, SIOCADDRT)) return 3;
    if (!hasTold(2) || !told.back() || !path->isAvailable()) return 4;
    if (!changeRoute(socket, SIOCDELRT)) return 5;
    if (!hasTold(3) || told.back()) return 6;
    subscription.reset();
    path.reset();
    path = std::make_unique<GioNetworkPath>(loop);
    subscription = path->onChange([&](bool isAvailable) { told.push_back(isAvailable); });
    if (!hasTold(4) || told.back()) return 7;
    if (!changeRoute(socket, SIOCADDRT) || !hasTold(5) || !told.back()) return 8;
    return 0;
}

constexpr int kNoNamespace = 100;

int inOwnNetwork() {
    if (::unshare(CLONE_NEWNET) < 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) < 0) return kNoNamespace;
    const posix::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!raiseLoopback(socket.get())) return kNoNamespace;
    return watchTheRoute(socket.get());
}

TEST(GioNetworkPathTest, TellsWhenTheDefaultRouteComesAndGoes) {
    // Apart, since a process does not leave a network namespace again.
    const auto child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(inOwnNetwork());
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == kNoNamespace) GTEST_SKIP() << "this system gives no network namespace to a test";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the step that went wrong";
}

}  // namespace
}  // namespace tessivox::gio
