#include "backend/engines/OpenAIEngine.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "backend/engines/EngineError.h"
#include "backend/engines/QuietCuts.h"
#include "support/Certificate.h"
#include "support/StubServer.h"

namespace tessivox::backend {
namespace {

using namespace std::chrono_literals;
using tessivox::testing::StubServer;

constexpr const char* kHello = R"({"text": "Hello.", "segments": [{"start": 0.5, "end": 1, "text": " Hello."}]})";

std::vector<std::int16_t> noise(double seconds, int level = 9000) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(seconds * Sound::kSampleRate));
    unsigned state = 1;
    for (auto& sample : samples) {
        state = state * 1664525U + 1013904223U;
        sample = static_cast<std::int16_t>(static_cast<int>(state >> 16U) % (2 * level) - level);
    }
    return samples;
}

struct OpenAIEngineTest : ::testing::Test {
    StubServer server;
    std::vector<std::int16_t> samples = noise(2);

    OpenAISettings settings() {
        OpenAISettings settings;
        settings.url = server.url("/v1/");
        settings.model = "whisper-1";
        settings.key = "sk-secret";
        settings.pauses = {0ms, 0ms};
        return settings;
    }
    std::string failureOf(const OpenAISettings& settings) {
        try {
            OpenAIEngine(settings).transcribe({samples}, {});
        } catch (const EngineError& error) {
            return error.description();
        }
        return "no failure";
    }
    std::string origin() const { return server.url(""); }
};

TEST_F(OpenAIEngineTest, SendsTheSoundAsAForm) {
    server.willAnswer(StubServer::status(200, "", kHello));
    const auto utterances = OpenAIEngine(settings()).transcribe({samples}, {});
    ASSERT_EQ(utterances.size(), 1U);
    EXPECT_EQ(utterances[0].text, "Hello.");
    EXPECT_EQ(utterances[0].start, 0.5);
    const auto request = server.requests().at(0);
    EXPECT_TRUE(request.starts_with("POST /v1/audio/transcriptions HTTP/1.1\r\n"));
    for (const auto* part : {"Authorization: Bearer sk-secret\r\n", "name=\"model\"\r\n\r\nwhisper-1\r\n",
                             "name=\"response_format\"\r\n\r\nverbose_json\r\n",
                             "filename=\"sound.wav\"\r\nContent-Type: audio/wav\r\n\r\nRIFF"}) {
        EXPECT_NE(request.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(request.find("name=\"language\""), std::string::npos);
    EXPECT_GT(request.size(), 64000U);
}

TEST_F(OpenAIEngineTest, CutsLongSoundAtQuietPlacesAndShiftsTheTimes) {
    auto sound = noise(5);
    std::fill(sound.begin() + 24000, sound.begin() + 30400, std::int16_t{100});  // 1.5 to 1.9 s
    std::fill(sound.begin() + 56000, sound.end(), std::int16_t{3});              // from 3.5 s: silence
    samples = sound;
    auto inPieces = settings();
    inPieces.secondsPerRequest = 2;
    for (int piece = 0; piece < 2; ++piece) server.willAnswer(StubServer::status(200, "", kHello));
    std::vector<double> done;
    const auto utterances =
        OpenAIEngine(inPieces).transcribe({samples}, [&](double fraction) { done.push_back(fraction); });
    ASSERT_EQ(utterances.size(), 2U);
    EXPECT_NEAR(utterances[1].start, 0.5 + 1.7, 0.11);
    EXPECT_EQ(server.requests().size(), 2U);  // nothing is sent of silence, for which services invent words
    ASSERT_EQ(done.size(), 3U);
    EXPECT_EQ(done.back(), 1);
}

TEST_F(OpenAIEngineTest, TriesAgainWhatMayPass) {
    server.willAnswer(StubServer::status(503));
    server.willAnswer({"HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n{\"text\":"});
    server.willAnswer(StubServer::status(200, "", kHello));
    EXPECT_EQ(OpenAIEngine(settings()).transcribe({samples}, {}).size(), 1U);
    EXPECT_EQ(server.requests().size(), 3U);
    server.willAnswer(StubServer::status(400, "", R"({"error": {"message": "bad\nmodel"}})"));
    EXPECT_EQ(failureOf(settings()), origin() + " did not accept the sound (400): bad model");
    EXPECT_EQ(server.requests().size(), 4U);
}

TEST_F(OpenAIEngineTest, SaysWhatToDoAboutAFailure) {
    const auto failureAt = [&](int status, const std::string& body) {
        auto once = settings();
        once.pauses.clear();
        server.willAnswer(StubServer::status(status, "Location: http://127.0.0.1:1/\r\n", body));
        return failureOf(once);
    };
    EXPECT_EQ(failureAt(401, R"({"error": {"message": "Incorrect key sk-secret"}})"),
              origin() + " refused the key. Check the variable TESSIVOX_OPENAI_KEY.");
    EXPECT_EQ(failureAt(429, R"({"error": {"message": "Quota of sk-secret used"}})"),
              origin() + " is busy, or your limit there is used up. Try again later.");
    EXPECT_EQ(failureAt(302, ""), origin() + " sends its visitors elsewhere (302). Give the address that it names.");
    EXPECT_EQ(failureAt(200, "<html>"), origin() + " did not answer with a transcript. Check the address.");
    EXPECT_NE(failureAt(200, "{"), "no failure");
    const auto requests = server.requests().size();
    EXPECT_EQ(requests, 5U);
}

/// A service with a certificate of its own making.
struct EncryptedService {
    const std::filesystem::path folder = makeFolder();
    const tessivox::testing::Certificate certificate{folder};
    httplib::SSLServer server{certificate.certificate.c_str(), certificate.key.c_str()};
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread thread{[this] { server.listen_after_bind(); }};

    static std::filesystem::path makeFolder() {
        std::string name = "/tmp/tessivox-service-XXXXXX";
        return ::mkdtemp(name.data());
    }
    EncryptedService() {
        server.Post("/v1/audio/transcriptions", [](const httplib::Request&, httplib::Response& response) {
            response.set_content(kHello, "application/json");
        });
    }
    ~EncryptedService() {
        while (!server.is_running()) std::this_thread::yield();
        server.stop();
        thread.join();
        std::filesystem::remove_all(folder);
    }
};

TEST_F(OpenAIEngineTest, SendsNothingToAServiceWhoseCertificateItDoesNotTrust) {
    EncryptedService service;
    auto encrypted = settings();
    encrypted.url = "https://127.0.0.1:" + std::to_string(service.port) + "/v1";
    encrypted.pauses.clear();
    EXPECT_EQ(failureOf(encrypted), "Cannot trust https://127.0.0.1:" + std::to_string(service.port) +
                                        ": its certificate does not hold. Check the address.");
    ::setenv("SSL_CERT_FILE", service.certificate.certificate.c_str(), 1);  // as OpenSSL's users say whom to trust
    EXPECT_EQ(OpenAIEngine(encrypted).transcribe({samples}, {}).size(), 1U);
    ::unsetenv("SSL_CERT_FILE");
}

TEST_F(OpenAIEngineTest, WaitsNoLongerThanItMay) {
    auto brief = settings();
    brief.pauses.clear();
    brief.limits.total = 200ms;
    server.willAnswer({"HTTP/1.1 200 OK\r\nContent-Le", true});
    EXPECT_EQ(failureOf(brief), origin() + " took too long to answer. Try again later.");
    auto small = settings();
    small.pauses.clear();
    small.limits.answer = 1000;
    server.willAnswer(StubServer::status(200, "", std::string(2000, 'x')));
    EXPECT_EQ(failureOf(small), origin() + " sent more than it should. Check the address.");
    small.url = "http://127.0.0.1:1/v1";
    EXPECT_EQ(failureOf(small), "Cannot reach http://127.0.0.1:1. Check the address and the network.");
}

TEST_F(OpenAIEngineTest, RefusesAddressesAndKeysThatLeak) {
    for (const auto* url : {"http://example.com/v1", "http://127.0.0.1.example.com", "http://localhost.example.com",
                            "ftp://127.0.0.1", "https://user:pw@example.com", "https://exa mple.com", "https://",
                            "example.com", "https://example.com/v1?key=1", "https://example.com:0", "http://127.1"}) {
        EXPECT_THROW(Endpoint(url, "x"), EngineError) << url;
    }
    for (const auto* url : {"https://api.example.com/v1", "http://localhost:11434", "http://127.0.0.2:8080/v1/",
                            "http://[::1]:8080/v1", "HTTPS://Example.com:8443"}) {
        EXPECT_NO_THROW(Endpoint(url, "x")) << url;
    }
    EXPECT_EQ(Endpoint("https://a.example/v1/chat/completions", "x").path("/chat/completions"), "/v1/chat/completions");
    auto split = settings();
    split.key = "sk\r\nX-Other: 1";
    EXPECT_THROW(OpenAIEngine{split}, EngineError);
}

TEST(QuietCutsTest, CoversEverySampleOnceInPiecesThatAreShortEnough) {
    const auto sound = noise(7.3);
    const auto pieces = cutAtQuietPlaces(sound, 32000, 16000);
    const auto* next = sound.data();
    for (const auto piece : pieces) {
        EXPECT_EQ(piece.data(), next);
        EXPECT_LE(piece.size(), 32000U);
        EXPECT_GE(piece.size(), piece.data() + piece.size() == sound.data() + sound.size() ? 1U : 16000U);
        next += piece.size();
    }
    EXPECT_EQ(next, sound.data() + sound.size());
    EXPECT_TRUE(cutAtQuietPlaces({}, 100, 50).empty());
}

}  // namespace
}  // namespace tessivox::backend
