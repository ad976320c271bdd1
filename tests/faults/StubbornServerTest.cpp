#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

#include "faults/FaultTest.h"
#include "support/StubServer.h"

namespace tessivox::transcription {
namespace {

using Answer = testing::StubServer::Answer;

constexpr std::size_t kUpload = 12'000'000;  // bytes; more than the buffers of a connection take

Answer json(const std::string& body) { return testing::StubServer::status(200, "", body); }
Answer withPace(Answer answer) {
    answer.pace = 40ms;
    return answer;
}
Answer task(const std::string& more) { return json(R"({"task_id":"t","status":)" + more + "}"); }
Answer accepted() { return task(R"("pending")"); }
Answer transcribed(const std::string& text) {
    return task(R"("completed","text":")" + text + R"(","duration_seconds":60,"provider":"p",
        "usage":{"used":1,"limit":5,"remaining":4,"can_transcribe":true})");
}

const Answer kReset{"", false, 1'000'000};
const Answer kResetAtOnce{"", false, 1};
const Answer kStopsReading{"", true, 1'000'000};
const Answer kSilence{"", true};
const Answer kHangUp{"", false};
const Answer kHalf{"HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n{\"task_id\"", false};
const Answer kHalfThenSilence{"HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n{\"task_id\"", true};
const Answer kHalfAHead{"HTTP/1.1 200 O", false};
const Answer kGarbage{"\x01\x02garbage\r\n\r\n", false};
const Answer kPage = json("<html>It works!</html>");
const Answer kOtherRecord = json(R"({"task_id":17,"status":[]})");
const Answer kNotUtf8 = json("{\"task_id\":\"\xff\xfe\",\"status\":");
const Answer kElsewhere = testing::StubServer::status(307, "Location: http://127.0.0.1:9/api\r\n");
const Answer kTrickle = withPace(json(std::string(1000, ' ')));

struct Case {
    const char* name;
    std::vector<Answer> first;  ///< one after the other
    Answer then;                ///< to all that follows
    Patience patience;
    Ending ending;
};
void PrintTo(const Case& c, std::ostream* stream) { *stream << c.name; }

/// A server that does to every upload what it should not.
Case upload(const char* name, const Answer& answer, const Ending& ending, const Patience& patience = {}) {
    return {name, {}, answer, patience, ending};
}
/// One that takes the upload and then treats every question for the task so.
Case poll(const char* name, const Answer& answer, const Ending& ending, const Patience& patience = {}) {
    return {name, {accepted()}, answer, patience, ending};
}

// Only for servers that the client waits for in vain.
const Patience kBrief = Patience::forUploads(400ms);
const Patience kBriefForPolls = Patience::forPolls(150ms);
const Ending kNoUpload = fails("network", kNoConnection, Task::gone, 3);
const Ending kMalformedUpload = fails("invalid_response", kNoHint, Task::gone);
const Ending kOutage = fails("network", kNoConnection, Task::kept);
const Ending kMalformedPoll = fails("invalid_response", kNoHint, Task::kept);

const Case kCases[] = {
    upload("UploadIsReset", kReset, kNoUpload),
    upload("UploadIsResetAtOnce", kResetAtOnce, kNoUpload),
    upload("UploadIsNotRead", kStopsReading, kNoUpload, kBrief),
    upload("UploadGetsSilence", kSilence, kNoUpload, kBrief),
    upload("UploadGetsAHangUp", kHangUp, kNoUpload),
    upload("UploadGetsHalfAnAnswer", kHalf, kNoUpload),
    upload("UploadGetsHalfAnAnswerAndSilence", kHalfThenSilence, kNoUpload, kBrief),
    upload("UploadGetsHalfAHead", kHalfAHead, kNoUpload),
    upload("UploadGetsGarbage", kGarbage, kNoUpload),
    upload("UploadGetsATrickle", kTrickle, kNoUpload, kBrief),
    upload("UploadGetsAPage", kPage, kMalformedUpload),
    upload("UploadGetsAnotherRecord", kOtherRecord, kMalformedUpload),
    upload("UploadGetsBytesThatAreNoText", kNotUtf8, kMalformedUpload),
    upload("UploadIsSentElsewhere", kElsewhere, fails("server_3xx", kNoHint, Task::gone)),
    {"UploadIsResetTwice", {kReset, kReset, accepted()}, transcribed("hello"), {}, finishes(3)},
    {"UploadIsResetOnce", {kReset, accepted()}, transcribed("hello"), {}, finishes(2)},

    poll("PollIsReset", kResetAtOnce, kOutage),
    poll("PollGetsSilence", kSilence, kOutage, kBriefForPolls),
    poll("PollGetsAHangUp", kHangUp, kOutage),
    poll("PollGetsHalfAnAnswer", kHalf, kOutage),
    poll("PollGetsHalfAnAnswerAndSilence", kHalfThenSilence, kOutage, kBriefForPolls),
    poll("PollGetsHalfAHead", kHalfAHead, kOutage),
    poll("PollGetsGarbage", kGarbage, kOutage),
    poll("PollGetsATrickle", kTrickle, kOutage, kBriefForPolls),
    poll("PollGetsAPage", kPage, kMalformedPoll),
    poll("PollGetsAnotherRecord", kOtherRecord, kMalformedPoll),
    poll("PollGetsBytesThatAreNoText", kNotUtf8, kMalformedPoll),
    poll("PollIsSentElsewhere", kElsewhere, fails("server_3xx", kNoHint, Task::kept)),
    poll("PollGetsAnUnknownStatus", task(R"("resting")"), kMalformedPoll),
    poll("TaskFails", task(R"("failed","error":"no")"), fails("provider_error", kNoHint, Task::gone)),
    poll("ResultIsIncomplete", task(R"("completed","text":"hello")"), fails("invalid_response", kNoHint, Task::gone)),
    poll("ResultIsBlank", transcribed(" \\n\\t "), findsNoSpeech()),
    {"TaskNeverEnds", {accepted()}, accepted(), Patience::forTask(300ms), fails("timeout", kTimedOut, Task::kept)},
    {"PollIsResetNowAndThen",
     {accepted(), kResetAtOnce, accepted(), kHangUp, accepted()},
     transcribed("hello"),
     {},
     finishes()},
};

struct StubbornServerTest : FaultTest, ::testing::WithParamInterface<Case> {
    /// Uploads that reached the server, whoever sent them.
    static int uploadsTo(const testing::StubServer& server) {
        auto count = server.unreadRequests();
        for (const auto& request : server.requests()) count += request.starts_with("POST /api/transcribe/submit ");
        return static_cast<int>(count);
    }
};

TEST_P(StubbornServerTest, EndsAsItShouldAndLeavesARecordingThatCanBeTranscribed) {
    const auto& c = GetParam();
    {
        testing::StubServer server;
        for (const auto& answer : c.first) server.willAnswer(answer);
        server.willAlwaysAnswer(c.then);
        EXPECT_EQ(run(server.url("/api"), c.patience, kUpload).text(), c.ending.text());
        if (c.first.empty()) {
            EXPECT_EQ(uploadsTo(server), c.ending.uploads) << "no upload is sent twice on the way";
        }
    }
    if (c.ending.transcript == Transcript::absent) {
        testing::StubServer server;
        if (!isPending()) server.willAnswer(accepted());
        server.willAlwaysAnswer(transcribed("hello"));
        EXPECT_EQ(run(server.url("/api"), {}, kUpload).text(), mended(c.ending).text());
        EXPECT_EQ(uploadsTo(server), mended(c.ending).uploads);
    }
    EXPECT_EQ(transcriptText(), "hello");
}

INSTANTIATE_TEST_SUITE_P(WhenThe, StubbornServerTest, ::testing::ValuesIn(kCases),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
}  // namespace tessivox::transcription
