#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/BackendProcess.h"

namespace tessivox::testing {

/// The real server with the engine for tests, in a folder of its own.
class BackendTest : public ::testing::Test {
protected:
    using Path = std::filesystem::path;
    using Arguments = std::vector<std::string>;
    using json = nlohmann::json;

    BackendTest() {
        std::string pattern = "/tmp/tessivox-backend-XXXXXX";
        home = ::mkdtemp(pattern.data());
        ::setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
    }
    ~BackendTest() override {
        server.reset();
        std::filesystem::remove_all(home);
    }

    Arguments withDefaults(const Arguments& more) const {
        Arguments all{"--state", state().string(), "--testing", "--engine", "fake", "--verbose"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    void start(const Arguments& more = {}) {
        server = std::make_unique<BackendProcess>(TESSIVOX_BACKEND, withDefaults(more), home / "errors");
        ASSERT_TRUE(server->waitForUrl()) << errors();
    }
    void restart(const Arguments& more = {}) {
        server.reset();
        start(more);
    }

    static bool holds(const std::function<bool()>& condition) {
        for (int tries = 0; tries < 2000; ++tries) {
            if (condition()) return true;
            ::poll(nullptr, 0, 10);
        }
        return false;
    }
    std::string submit(const std::string& bytes = "some sound") const {
        const auto reply = server->upload(bytes);
        EXPECT_EQ(reply.status, 200) << reply.body;
        return json::parse(reply.body).value("task_id", "");
    }
    json status(const std::string& id) const {
        const auto reply = server->get("/transcribe/status/" + id);
        return reply.status == 200 ? json::parse(reply.body) : json{{"status", std::to_string(reply.status)}};
    }
    /// The status once it is that word; what it was last otherwise.
    json waitFor(const std::string& id, const std::string& word) const {
        json last;
        holds([&] { return (last = status(id)).at("status") == word; });
        return last;
    }

    Path state() const { return home / "state"; }
    std::vector<Path> filesIn(const char* folder) const {
        return {std::filesystem::directory_iterator(state() / folder), {}};
    }
    static std::string contents(const Path& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string errors() const { return contents(home / "errors"); }

    Path home;
    std::unique_ptr<BackendProcess> server;
};

}  // namespace tessivox::testing
