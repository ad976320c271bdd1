#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/ServerChoice.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "qt/QtTest.h"
#include "support/BackendProcess.h"
#include "support/Certificate.h"
#include "support/MemoryPreferences.h"
#include "transcription/ServerClient.h"
#include "transcription/TranscriptionError.h"

namespace tessivox {
namespace {

using namespace std::chrono_literals;
using Path = std::filesystem::path;

/// A server as for other machines, with a certificate and a shared secret, and the program's client.
struct EncryptedServerTest : testing::QtTest {
    const Path home = makeHome();
    const testing::Certificate certificate{home};
    const std::string secret = "AnOwnerOfTheServerHasChosenThis32";
    testing::BackendProcess server{TESSIVOX_BACKEND, arguments(), home / "errors"};
    posix::PosixFiles files{loop};
    testing::MemoryPreferences preferences;
    transcription::DeviceIdentity identity{preferences, files, home / "token.json",
                                           [] { return std::string("DEVICE"); }};

    static Path makeHome() {
        std::string name = (std::filesystem::temp_directory_path() / "encrypted-server-XXXXXX").string();
        if (!::mkdtemp(name.data())) throw std::runtime_error("mkdtemp");
        ::setenv("XDG_CONFIG_HOME", name.c_str(), 1);
        return name;
    }
    EncryptedServerTest() {
        if (!server.waitForUrl()) throw std::runtime_error("the server does not start");
    }
    ~EncryptedServerTest() override { std::filesystem::remove_all(home); }
    std::vector<std::string> arguments() const {
        const auto file = home / "secret";
        std::ofstream(file) << secret;
        std::filesystem::permissions(file, std::filesystem::perms(0600));
        return {"--listen",       "127.0.0.1:0",
                "--tls-cert",     certificate.certificate.string(),
                "--tls-key",      certificate.key.string(),
                "--secret-file",  file.string(),
                "--state",        (home / "state").string(),
                "--testing",      "--engine",
                "fake",           "--fake-text",
                "Hello over TLS."};
    }

    /// What the program's client talks through, trusting the file beside the system's certificates.
    struct Talk {
        qt::QtHttpClient http;
        app::ServerChoice choice;
        transcription::ServerClient client;

        Talk(EncryptedServerTest& test, const std::string& url, const std::optional<Path>& trusted)
            : http("Tessivox/1.2", trusted),
              choice(
                  [url] { return transcription::ServerSettings{.option = url, .environment = {}, .preference = {}}; },
                  {}),
              client({http, choice, test.identity, "1.2", [] { return std::string("BOUNDARY"); }}) {}
    };
    /// Asks until the task is neither pending nor processing.
    transcription::TaskStatusResponse outcomeOf(transcription::ServerClient& client, const std::string& task) {
        const auto end = loop.now() + 60s;
        while (loop.now() < end) {
            auto answer = finish(client.fetchTaskStatus(task));
            if (answer.status == "completed" || answer.status == "failed") return answer;
            runUntil([] { return false; }, 50ms);
        }
        throw std::runtime_error("the task has no outcome");
    }
};

TEST_F(EncryptedServerTest, TranscribesForAClientThatTrustsItsCertificate) {
    ASSERT_TRUE(server.url().starts_with("https://127.0.0.1:")) << server.url();
    Talk talk(*this, server.url(), certificate.certificate);
    const transcription::Upload upload{"a.m4a", std::make_shared<const std::string>(3'000'000, 'x')};
    const auto outcome = outcomeOf(talk.client, finish(talk.client.sendSubmit(upload)));
    EXPECT_EQ(outcome.status, "completed") << outcome.error.value_or("");
    EXPECT_NE(outcome.text.value_or("").find("Hello over TLS."), std::string::npos);
    EXPECT_FALSE(finish(talk.client.sendSummarize(*outcome.text, std::nullopt)).summary.empty());
}

TEST_F(EncryptedServerTest, IsNothingToClientsWithoutItsCertificateOrItsSecret) {
    Talk untrusting(*this, server.url(), std::nullopt);
    EXPECT_THROW(finish(untrusting.client.usage()), transcription::TranscriptionError);
    auto url = server.url();
    url.replace(url.find(secret), 3, "Not");
    Talk stranger(*this, url, certificate.certificate);
    try {
        finish(stranger.client.usage());
        ADD_FAILURE() << "a wrong secret was taken";
    } catch (const transcription::TranscriptionError& error) {
        ASSERT_NE(error.as<transcription::TranscriptionError::ServerHTTPError>(), nullptr) << error.description();
        EXPECT_EQ(error.as<transcription::TranscriptionError::ServerHTTPError>()->status, 404);
    }
}

}  // namespace
}  // namespace tessivox
