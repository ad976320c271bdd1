#include "platform/linux/posix/LocalServer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/BackendProcess.h"
#include "support/TestFolder.h"
#include "support/TurnLoop.h"

namespace tessivox::posix {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using Path = std::filesystem::path;

int portIn(const std::string& url) { return std::stoi(url.substr(std::string("http://127.0.0.1:").size())); }

/// What the server answers to a path below its address; empty if it does not.
std::string get(const std::string& url, const std::string& path) {
    const auto line = "GET " + url.substr(url.find('/', 8)) + path + " HTTP/1.1\r\n\r\n";
    return testing::exchange(static_cast<std::uint16_t>(portIn(url)), line).body;
}

json statusOf(const std::string& url, const std::string& path = "/status") {
    return json::parse(get(url, path), nullptr, false);
}

struct LocalServerTest : ::testing::Test {
    EventLoop loop;
    testing::TestFolder made;
    const Path folder = made.path();
    Path addressFile = folder / "run" / "backend.json";
    LocalServer::Options options{addressFile, TESSIVOX_STAND_IN_SERVER, folder / "log", 20ms, 40ms};
    std::unique_ptr<LocalServer> server = std::make_unique<LocalServer>(loop, options);

    ~LocalServerTest() override {
        server.reset();
        EXPECT_TRUE(testing::runUntil(loop, [&] { return isFree(); })) << "a server is left";
        while (::waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    }
    /// Whether no server lives.
    bool isFree() const {
        const Descriptor file(::open(addressFile.c_str(), O_RDWR | O_CLOEXEC));
        return !file || ::flock(file.get(), LOCK_EX | LOCK_NB) == 0;
    }
    std::string find() { return testing::finish(loop, server->baseURL()); }
    std::string findWith(LocalServer& other) { return testing::finish(loop, other.baseURL()); }
    std::string refusal() {
        try {
            return "no refusal, but " + find();
        } catch (const base::HttpError& error) {
            EXPECT_TRUE(error.description().ends_with(".")) << error.description();
            return std::to_string(error.code()) + " " + error.description();
        }
    }
    /// The process that answers, as soon as there is one: a crashed server is started again by the loop.
    int pidAt(const std::string& url) {
        auto answer = std::async(std::launch::async, [&url] { return statusOf(url); });
        EXPECT_TRUE(testing::runUntil(
            loop, [&] { return answer.wait_for(0s) == std::future_status::ready; }, 30s));
        const auto status = answer.get();
        return status.is_object() ? status.value("pid", -1) : -1;
    }
};

TEST_F(LocalServerTest, StartsAServerThatHasNothingOfOursButWhatItNeeds) {
    std::signal(SIGUSR1, SIG_IGN);
    sigset_t set{}, before{};
    ::sigaddset(&set, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &set, &before);
    const Descriptor leaky(::open("/dev/null", O_RDONLY));  // as a library may leave one
    const auto url = find();
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    std::signal(SIGUSR1, SIG_DFL);

    const auto status = statusOf(url);
    ASSERT_TRUE(status.is_object());
    EXPECT_EQ(status["arguments"], json({"--inherited"}));
    EXPECT_EQ(status["descriptors"], json({0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(status["blocked"], 0);
    EXPECT_EQ(status["ignored"].get<std::uint64_t>() & (std::uint64_t{1} << (SIGUSR1 - 1)), 0U);
    EXPECT_EQ(status["session"], status["pid"]);
    EXPECT_EQ(status["folder"], "/");
    const auto written = json::parse(std::ifstream(addressFile));
    EXPECT_EQ(written["url"], url);
    EXPECT_EQ(std::filesystem::status(addressFile).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::filesystem::status(addressFile.parent_path()).permissions(), std::filesystem::perms(0700));
    EXPECT_EQ(server->lastURL(), url);
}

TEST_F(LocalServerTest, FindsTheServerOfAnotherAndLeavesItAlone) {
    const auto url = find();
    LocalServer other(loop, options);
    EXPECT_EQ(findWith(other), url);
    EXPECT_EQ(find(), url);
    const auto pid = statusOf(url)["pid"];
    ASSERT_TRUE(statusOf(url, "/work").is_object());
    server.reset();
    EXPECT_EQ(findWith(other), url) << "it still has work";
    EXPECT_EQ(statusOf(url)["pid"], pid);
    get(url, "/end");
    ASSERT_TRUE(testing::runUntil(loop, [&] { return isFree(); }));
    const auto next = findWith(other);
    EXPECT_NE(next, url);
    EXPECT_NE(statusOf(next)["pid"], pid);
}

TEST_F(LocalServerTest, TellsAServerWithoutWorkThatItsStarterIsGone) {
    find();
    EXPECT_FALSE(isFree());
    server.reset();
    EXPECT_TRUE(testing::runUntil(loop, [&] { return isFree(); }));
}

TEST_F(LocalServerTest, StartsACrashedServerAgainUnderItsAddress) {
    const auto url = find();
    int pid = statusOf(url)["pid"];
    for (const auto* crash : {"/die", "/fail", "/die"}) {
        get(url, crash);
        const int next = pidAt(url);
        EXPECT_NE(next, pid) << crash;
        EXPECT_GT(next, 0) << "the request waited for the server";
        EXPECT_EQ(find(), url);
        EXPECT_FALSE(isFree());
        pid = next;
    }
    LocalServer other(loop, options);
    EXPECT_EQ(findWith(other), url);
}

TEST_F(LocalServerTest, HoldsItsPlaceForACrashedServer) {
    options.firstPause = options.longestPause = 1h;
    server = std::make_unique<LocalServer>(loop, options);
    const auto url = find();
    const int first = statusOf(url)["pid"];
    get(url, "/die");
    const int second = pidAt(url);
    EXPECT_NE(second, first);
    get(url, "/die");
    EXPECT_TRUE(testing::runUntil(loop, [&] { return second > 1 && ::kill(second, 0) < 0; })) << "its end is taken";
    EXPECT_FALSE(isFree()) << "nobody else starts one meanwhile";
    LocalServer other(loop, options);
    EXPECT_EQ(findWith(other), url);
}

TEST_F(LocalServerTest, SaysWhereToLookWhenAServerKeepsCrashing) {
    const auto script = folder / "broken";
    std::ofstream(script) << "#!/bin/sh\necho no model >&2\nexit 3\n";
    std::filesystem::permissions(script, std::filesystem::perms(0700));
    options.program = script;
    server = std::make_unique<LocalServer>(loop, options);
    std::string sentence;
    EXPECT_TRUE(testing::runUntil(loop, [&] {
        sentence = refusal();
        return sentence.find((folder / "log").string()) != sentence.npos;
    }));
    std::string line;
    std::getline(std::ifstream(folder / "log"), line);
    EXPECT_EQ(line, "no model");
}

TEST_F(LocalServerTest, StartsAnotherWhenOneWasToldToEnd) {
    const auto url = find();
    get(url, "/end");
    EXPECT_TRUE(testing::runUntil(loop, [&] { return isFree(); }));
    std::string next = url;
    EXPECT_TRUE(testing::runUntil(loop, [&] { return (next = find()) != url; }));
    EXPECT_TRUE(statusOf(next).is_object());
    EXPECT_EQ(get(url, "/status"), "") << "the old place is given up";
}

TEST_F(LocalServerTest, MakesOneServerOfManyStarters) {
    constexpr int kStarters = 8;
    std::array<int, 2> go{}, told{}, stay{};
    ASSERT_EQ(::pipe2(go.data(), O_CLOEXEC) + ::pipe2(told.data(), O_CLOEXEC) + ::pipe2(stay.data(), O_CLOEXEC), 0);
    std::vector<pid_t> children;
    for (int number = 0; number < kStarters; ++number) {
        const auto child = ::fork();
        if (child == 0) {
            ::close(go[1]);
            ::close(stay[1]);
            char byte = 0;
            [[maybe_unused]] auto ignored = ::read(go[0], &byte, 1);  // until all are there
            EventLoop own;
            LocalServer starter(own, options);
            std::string url = "none";
            try {
                url = testing::finish(own, starter.baseURL());
            } catch (const std::exception& error) {
                url = error.what();
            }
            url.resize(200, ' ');
            ignored = ::write(told[1], url.data(), url.size());
            ignored = ::read(stay[0], &byte, 1);
            ::_exit(0);
        }
        children.push_back(child);
    }
    ::close(go[1]);
    std::vector<std::string> urls;
    for (int number = 0; number < kStarters; ++number) {
        std::string url(200, ' ');
        pollfd waiting{told[0], POLLIN, 0};
        ASSERT_EQ(::poll(&waiting, 1, 20000), 1);
        ASSERT_EQ(::read(told[0], url.data(), url.size()), 200);
        urls.push_back(url.substr(0, url.find(' ')));
    }
    EXPECT_EQ(std::ranges::count(urls, urls.front()), kStarters) << urls.front();
    EXPECT_TRUE(statusOf(urls.front()).is_object());
    std::ifstream log(folder / "log");
    const std::string text(std::istreambuf_iterator<char>(log), {});
    EXPECT_EQ(text, "started\n");
    ::close(stay[1]);
    for (const auto child : children) ::waitpid(child, nullptr, 0);
    for (const int fd : {go[0], told[0], told[1], stay[0]}) ::close(fd);
}

TEST_F(LocalServerTest, TrustsNoFileThatOthersCouldHaveWritten) {
    const auto secret = std::string(32, 'a');
    const auto good = R"({"url": "http://127.0.0.1:80/)" + secret + R"(/api", "pid": 1})";
    std::filesystem::create_directories(addressFile.parent_path());
    std::filesystem::permissions(addressFile.parent_path(), std::filesystem::perms(0700));
    std::ofstream(addressFile) << good;
    std::filesystem::permissions(addressFile, std::filesystem::perms(0644));
    EXPECT_NE(refusal().find("not a file of yours alone"), std::string::npos);
    std::filesystem::permissions(addressFile, std::filesystem::perms(0600));
    std::filesystem::rename(addressFile, folder / "elsewhere");
    std::filesystem::create_symlink(folder / "elsewhere", addressFile);
    EXPECT_NE(refusal().find("not a file of yours alone"), std::string::npos);
    std::filesystem::remove(addressFile);
    ASSERT_EQ(::mkfifo(addressFile.c_str(), 0600), 0);
    EXPECT_NE(refusal().find("not a file of yours alone"), std::string::npos);
    std::filesystem::remove(addressFile);
    std::filesystem::permissions(addressFile.parent_path(), std::filesystem::perms(0755));
    EXPECT_NE(refusal().find("mode 0700"), std::string::npos);
    std::filesystem::permissions(addressFile.parent_path(), std::filesystem::perms(0700));

    std::filesystem::rename(folder / "elsewhere", addressFile);
    const Descriptor held(::open(addressFile.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(held.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(find(), "http://127.0.0.1:80/" + secret + "/api");
    const auto withURL = [](const std::string& url) { return R"({"url":")" + url + R"("})"; };
    for (const auto& text :
         {withURL("http://127.0.0.1.example.org:80/" + secret + "/api"), withURL("http://127.0.0.1:80/" + secret),
          withURL("https://127.0.0.1:80/" + secret + "/api"), withURL("http://127.0.0.1:0/" + secret + "/api"),
          withURL("http://127.0.0.1:65536/" + secret + "/api"), withURL("http://127.0.0.1:80/a" + secret + "/api"),
          withURL("http://127.0.0.1:80/" + secret.substr(1) + "g/api"),
          withURL("http://127.0.0.1:80/" + secret + "/api/"), withURL("http://127.0.0.1@x:80/" + secret + "/api"),
          std::string("[]"), std::string("{"), std::string("{}")}) {
        std::ofstream(addressFile, std::ios::trunc) << text;
        EXPECT_NE(refusal().find("names no server of this computer"), std::string::npos) << text;
    }
}

TEST_F(LocalServerTest, SaysWhatIsMissingAndLeavesThePlaceToOthers) {
    auto without = options;
    without.program = "";
    server = std::make_unique<LocalServer>(loop, without);
    EXPECT_NE(refusal().find("-1009 The program tessivox-backend"), std::string::npos);
    without.program = folder / "nothing";
    server = std::make_unique<LocalServer>(loop, without);
    EXPECT_NE(refusal().find("-1004 The transcription server of this computer cannot be started"), std::string::npos);
    EXPECT_TRUE(isFree());
    LocalServer other(loop, options);
    EXPECT_TRUE(statusOf(findWith(other)).is_object());
}

}  // namespace
}  // namespace tessivox::posix
