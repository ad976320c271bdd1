#include "platform/linux/posix/Terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <string>

#include "platform/linux/posix/Descriptor.h"

namespace tessivox::posix {
namespace {

using namespace std::chrono_literals;

/// A pseudo-terminal: the test types at one end, the terminal under test is the other.
struct TerminalTest : ::testing::Test {
    EventLoop loop;
    Descriptor keyboard{::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
    Descriptor screen = open();

    Descriptor open() const {
        std::array<char, 128> name{};
        if (::grantpt(keyboard.get()) != 0 || ::unlockpt(keyboard.get()) != 0) return {};
        if (::ptsname_r(keyboard.get(), name.data(), name.size()) != 0) return {};
        return Descriptor(::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    }
    bool echoes() const {
        termios mode{};
        EXPECT_EQ(::tcgetattr(screen.get(), &mode), 0);
        return (mode.c_lflag & ECHO) != 0 && (mode.c_lflag & ICANON) != 0;
    }
};

TEST_F(TerminalTest, HandsOverKeysAtOnceAndRestoresTheModeItFound) {
    ASSERT_TRUE(screen);
    const auto deadline = loop.after(20s, [this] { loop.quit(); });
    std::string keys;
    {
        Terminal terminal(loop, screen.get(), screen.get());
        EXPECT_TRUE(terminal.hasKeys());
        EXPECT_TRUE(echoes());
        terminal.readKeys([&](char key) {
            keys += key;
            if (keys.size() == 2) loop.quit();
        });
        EXPECT_FALSE(echoes());
        ASSERT_EQ(::write(keyboard.get(), "pq", 2), 2);
        loop.run();
    }
    EXPECT_EQ(keys, "pq");
    EXPECT_TRUE(echoes());
}

TEST_F(TerminalTest, GivesTheTerminalBackWhileSuspended) {
    const pid_t child = ::fork();
    if (child == 0) {
        Terminal terminal(loop, screen.get(), screen.get());
        terminal.readKeys([](char) {});
        terminal.suspend();
        ::_exit(echoes() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(status));
    EXPECT_TRUE(echoes());
    ::kill(child, SIGCONT);
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the keys were not taken again";
}

TEST_F(TerminalTest, TellsItsWidthAndThatAPipeIsNone) {
    winsize size{};
    size.ws_col = 132;
    ASSERT_EQ(::ioctl(screen.get(), TIOCSWINSZ, &size), 0);
    EXPECT_EQ(Terminal(loop, screen.get(), screen.get()).columns(), 132);
    const Descriptor file(::open("/dev/null", O_RDWR | O_CLOEXEC));
    Terminal none(loop, file.get(), file.get());
    none.readKeys([](char) {});
    EXPECT_FALSE(none.hasKeys());
    EXPECT_FALSE(none.hasScreen());
    EXPECT_EQ(none.columns(), 80);
}

}  // namespace
}  // namespace tessivox::posix
