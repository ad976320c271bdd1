#include "TranscriptionTest.h"

namespace tessivox::transcription {
namespace {

using Status = TranscriptionStatus;
using Kind = TranscriptionFailureKind;
using Codes = base::HttpErrorCode;

class TranscriptionServiceTest : public TranscriptionTest {
protected:
    Process process{time, files, server};
    TranscriptionService& service = *process.service;

    Status status() const { return TranscriptionTest::status(process, url); }
    std::optional<Kind> failure() const { return failureKind(process, url); }
    std::string hint() const {
        const auto& all = service.lastFailureHint.get();
        return all.contains(url) ? all.at(url) : "";
    }
    /// The last signal, without what all signals of a run carry.
    std::string lastSignal() const {
        auto line = process.signals.all.empty() ? "" : process.signals.all.back();
        for (const std::string common : {" attempt_id=ATTEMPT", " duration_sec=60", " file_size_kb=0"}) {
            const auto at = line.find(common);
            if (at != std::string::npos) line.erase(at, common.size());
        }
        return line;
    }
    void usageIs(const std::string& usage) {
        serverSays("/usage", 200, R"({"usage":)" + usage + "}");
        testing::await(time, service.refreshUsage());
    }
};

TEST_F(TranscriptionServiceTest, GoesTheWholeWayFromARecordingToItsTranscript) {
    std::vector<Status> states;
    const auto watching = service.activeTranscriptions.observe([&](const auto& all) {
        if (all.contains(url)) states.push_back(all.at(url));
    });
    serverTakes("abc");
    taskIs("pending");
    taskIs("processing");
    taskGives("\\n[00:01] Hello.\\n ");
    const auto run = transcribe(process);
    EXPECT_EQ(PendingDocument::parsed(pendingFile())->at(url).taskId, "abc");
    EXPECT_FALSE(files.exists("/tmp/upload_1.m4a"));
    EXPECT_EQ(polls(), 1U);
    time.advance(10s);
    ASSERT_EQ(run.result, url) << run.failure();

    EXPECT_EQ(states, (std::vector{Status::uploading, Status::processing, Status::completed}));
    EXPECT_EQ(textOf(Library::kFolder / "2026-01-15_10-30-00.txt"), "\n[00:01] Hello.\n ");
    EXPECT_EQ(pendingFile(), "[]");
    EXPECT_EQ(*server.requestsTo("/submit").at(0).rest.at(0), "copy");
    EXPECT_EQ(process.signals.all,
              (std::vector<std::string>{
                  "transcription_started attempt_id=ATTEMPT duration_sec=60 file_size_kb=0 resumed=false source=manual",
                  "transcription_completed attempt_id=ATTEMPT duration_sec=60 file_size_kb=0 has_gist=false "
                  "resumed=false source=manual upload_kb=0"}));
    EXPECT_EQ(process.surveys, 1);
    EXPECT_EQ(service.currentUsage.get()->used, 3);
    EXPECT_TRUE(service.results().hasTranscript(url));
    EXPECT_EQ(
        lines,
        (std::vector<std::string>{
            "[Analytics] Sent: transcription_started",
            "[Transcription] Starting transcription for: 2026-01-15_10-30-00.m4a (source: manual, resume: false)",
            "[Transcription] Submit URL: https://server.example/api/transcribe/submit",
            "[Transcription] Downsampled for upload: 0.0 MB -> 0.0 MB", "[Transcription] Got task_id: abc",
            "[Transcription] Completed! Text length: 17", "[Transcription] Success! Saved to: 2026-01-15_10-30-00.txt",
            "[Analytics] Sent: transcription_completed"}));
}

TEST_F(TranscriptionServiceTest, UploadsTheRecordingItselfIfThereIsNoCopy) {
    process.downsampler.fails = true;
    serverTakes("abc");
    taskGives("Hi");
    EXPECT_EQ(transcribe(process).failure(), "");
    EXPECT_TRUE(hasLine("[Transcription] Downsample failed (No audio track in source file); uploading original"));
    EXPECT_EQ(*server.requestsTo("/submit").at(0).rest.at(0), testing::silentMovie(60));
}

struct Ending {
    const char* name;
    std::string submit, poll;  ///< "STATUS BODY"
    std::string code;
    Status status;
    std::optional<Kind> kind;
    std::string hint, signal;
    bool staysPending;
};

TEST_F(TranscriptionServiceTest, EndsEachFailureAsItShould) {
    const std::string good = R"(200 {"task_id":"t","status":"pending"})";
    const auto completed = [](const std::string& more) {
        return R"(200 {"task_id":"t","status":"completed")" + more + "}";
    };
    const std::string failed = "transcription_failed app_version=1.0 ";
    const Ending endings[] = {
        {"quota", R"(402 {"error":"x","code":"y","usage":)" + kUsedUp + "}", "", "limit_exceeded", Status::failed,
         Kind::quota, "", "transcription_blocked reason=quota", false},
        {"refused", R"(422 {"error":"x","code":"y"})", "", "provider_error", Status::failed, Kind::error, "",
         failed + "reason=provider_error resumed=false source=manual stage=upload upload_kb=0", false},
        {"lost", good, "404 ", "task_lost", Status::failed, Kind::error, "",
         failed + "reason=task_lost resumed=false source=manual stage=poll upload_kb=0", false},
        {"failed", good, R"(200 {"task_id":"t","status":"failed","error":"bad"})", "provider_error", Status::failed,
         Kind::error, "", failed + "reason=provider_error resumed=false source=manual stage=poll upload_kb=0", false},
        {"forbidden", good, "403 ", "server_4xx", Status::failed, Kind::error, "",
         failed + "error_code=403 reason=server_4xx resumed=false source=manual stage=poll upload_kb=0", true},
        {"odd", good, R"(200 {"task_id":"t","status":"resting"})", "invalid_response", Status::failed, Kind::error, "",
         failed + "reason=invalid_response resumed=false source=manual stage=poll upload_kb=0", true},
        {"501", good, "501 ", "server_5xx", Status::failed, Kind::error, "Server unavailable",
         failed + "error_code=501 reason=server_5xx resumed=false source=manual stage=poll upload_kb=0", true},
        {"silence", good, completed(R"(,"text":" \n\t ")"), "no_speech", Status::completed, Kind::noSpeech, "",
         "transcription_completed result=no_speech resumed=false source=manual upload_kb=0", false},
        {"no text", good, completed(""), "no_speech", Status::completed, Kind::noSpeech, "",
         "transcription_completed result=no_speech resumed=false source=manual upload_kb=0", false},
        {"no provider", good, completed(R"(,"text":"Hi","duration_seconds":60,"usage":)" + kUsage), "invalid_response",
         Status::failed, Kind::error, "",
         failed + "reason=invalid_response resumed=false source=manual stage=result upload_kb=0", false},
    };
    for (const auto& ending : endings) {
        SCOPED_TRACE(ending.name);
        files.put(Process::kPending, "[]");
        for (const auto& [part, answer] : {std::pair("/submit", ending.submit), std::pair("/status/", ending.poll)}) {
            if (!answer.empty()) serverSays(part, std::stoi(answer), answer.substr(4));
        }
        const auto run = transcribe(process);
        EXPECT_EQ(run.failure(), ending.code);
        EXPECT_EQ(status(), ending.status);
        EXPECT_EQ(failure(), ending.kind);
        EXPECT_EQ(hint(), ending.hint);
        EXPECT_EQ(lastSignal(), ending.signal);
        EXPECT_EQ(pendingFile() != "[]", ending.staysPending);
    }
    EXPECT_FALSE(service.results().hasTranscript(url));
    EXPECT_EQ(process.breadcrumbs.all.back(), "error transcription: Transcription failed");
}

TEST_F(TranscriptionServiceTest, FailsIfTheTranscriptCannotBeWritten) {
    serverTakes("abc");
    taskIs("processing");
    taskGives("Hi");
    const auto run = transcribe(process);
    files.failFrom(files.operationCount() + 1, CrashingFiles::Fault::noSpace, Library::kFolder);
    time.advance(5s);
    EXPECT_NE(run.failure(), "");
    EXPECT_EQ(status(), Status::failed);
    EXPECT_TRUE(
        lastSignal().starts_with("transcription_failed app_version=1.0 error_code=28 error_domain=posix "
                                 "reason=unknown resumed=false source=manual stage=result"))
        << lastSignal();
    EXPECT_EQ(pendingFile(), "[]");
    EXPECT_EQ(files.list(Library::kFolder), std::vector<Path>{url.filename()});
}

TEST_F(TranscriptionServiceTest, RepeatsAnUploadTwice) {
    server.will("/submit", FakeHttpClient::failure(Codes::connectionLost));
    serverSays("/submit", 503, "");
    server.will("/submit", FakeHttpClient::failure(Codes::timedOut));
    const auto run = transcribe(process);
    time.advance(9999ms);
    EXPECT_EQ(uploads(), 1U);
    time.advance(1ms);
    EXPECT_EQ(uploads(), 2U);
    EXPECT_EQ(status(), Status::uploading);
    EXPECT_TRUE(files.exists("/tmp/upload_1.m4a"));
    time.advance(30s);
    EXPECT_EQ(run.failure(), "network");
    EXPECT_EQ(uploads(), 3U);
    EXPECT_FALSE(files.exists("/tmp/upload_1.m4a"));
    EXPECT_EQ(hint(), "No connection");
    EXPECT_EQ(lastSignal(),
              "transcription_failed app_version=1.0 error_code=-1001 reason=network resumed=false "
              "source=manual stage=upload upload_kb=0 upload_retries=2");
    EXPECT_TRUE(hasLine("[Transcription] Upload failed (network), retry 1 in 10s"));
    EXPECT_TRUE(hasLine("[Transcription] Upload failed (server_5xx), retry 2 in 30s"));
}

TEST_F(TranscriptionServiceTest, WaitsLongerWhilePollsFailAndStartsAnewAfterAnAnswer) {
    serverTakes("abc");
    for (int count = 0; count < 5; ++count) serverSays("/status/", 503, "");
    taskIs("processing");
    serverSays("/status/", 502, "");
    taskGives("Hi");
    const auto run = transcribe(process);
    std::vector<long> pauses;
    for (auto known = polls(); run.isRunning();) {
        auto begin = time.now();
        while (run.isRunning() && polls() == known) time.advance(1s);
        pauses.push_back(static_cast<long>(base::toSeconds(time.now() - begin)));
        known = polls();
    }
    EXPECT_EQ(pauses, (std::vector<long>{5, 10, 20, 30, 30, 5, 5}));
    EXPECT_TRUE(hasLine("[Transcription] Poll #4 failed (server_5xx), retrying in 30s"));
    EXPECT_TRUE(hasLine("[Transcription] Poll #7 failed (server_502), retrying in 5s"));
    EXPECT_EQ(run.failure(), "");
}

TEST_F(TranscriptionServiceTest, GivesUpAnOutageOfTenMinutesAndKeepsTheTask) {
    serverTakes("abc");
    taskIs("processing");
    const auto run = transcribe(process);
    time.advance(605s);
    EXPECT_TRUE(run.isRunning());
    time.advance(30s);
    EXPECT_EQ(run.failure(), "network");
    EXPECT_NE(pendingFile(), "[]");

    server.usually("/status/", FakeHttpClient::json(200, R"({"task_id":"t","status":"processing"})"));
    const auto again = transcribe(process);
    EXPECT_EQ(status(), Status::processing);
    time.advance(2700s);
    EXPECT_EQ(again.failure(), "timeout");
    EXPECT_EQ(hint(), "Timed out");
    EXPECT_EQ(transcribe(process).failure(), "timeout");  // at once: the deadline is the task's
    EXPECT_EQ(uploads(), 1U);
    EXPECT_NE(pendingFile(), "[]");

    time.advance(24h);
    serverTakes("new");
    taskGives("Hi");
    EXPECT_EQ(transcribe(process).failure(), "");
}

TEST_F(TranscriptionServiceTest, KeepsASecondRunOfARecordingOut) {
    serverTakes("abc");
    taskIs("processing");
    const auto first = transcribe(process);
    EXPECT_EQ(transcribe(process).failure(), "already_in_progress");
    EXPECT_EQ(status(), Status::processing);
    taskGives("Hi");
    time.advance(5s);
    EXPECT_EQ(first.failure(), "");
    EXPECT_EQ(uploads(), 1U);
    for (const auto& name : files.list(Process::kFolder)) EXPECT_FALSE(name.native().starts_with("transcribing"));
}

TEST_F(TranscriptionServiceTest, UploadsNothingOnceTheQuotaIsUsedUp) {
    usageIs(kUsedUp);
    const auto run = transcribe(process);
    EXPECT_EQ(run.failure(), "limit_exceeded");
    EXPECT_EQ(uploads(), 0U);
    EXPECT_EQ(status(), Status::none);
    EXPECT_EQ(failure(), Kind::quota);
    EXPECT_EQ(lastSignal(), "transcription_blocked reason=quota");
    EXPECT_TRUE(hasLine("[Transcription] Limit exceeded (pre-check), skipping upload"));

    putPending("old", 1min);
    serverSays("/status/", 404, "");
    EXPECT_EQ(transcribe(process).failure(), "limit_exceeded");  // polled, and not uploaded anew
    EXPECT_EQ(polls(), 1U);
    EXPECT_EQ(uploads(), 0U);
    EXPECT_EQ(pendingFile(), "[]");
}

TEST_F(TranscriptionServiceTest, PollsASavedTaskBeforeItUploadsAgain) {
    putPending("old", 1h);
    taskIs("failed", R"(,"error":"crashed")");
    serverTakes("new");
    taskGives("Hi");
    const auto run = transcribe(process);
    EXPECT_EQ(run.failure(), "");
    EXPECT_EQ(uploads(), 1U);
    EXPECT_TRUE(hasLine("[Transcription] Saved task unusable, uploading again"));
    EXPECT_NE(lastSignal().find("resumed=false"), std::string::npos);
}

TEST_F(TranscriptionServiceTest, ResumesAtTheStartWhatIsStillToDo) {
    const Path done = Library::kFolder / "done.m4a", missing = Library::kFolder / "missing.m4a";
    files.put(done, "x");
    files.put(Library::kFolder / "done.txt", "Done.");
    const auto now = time.wallNow();
    files.put(Process::kPending,
              PendingDocument::text(
                  {{done, {done, "d", now}}, {missing, {missing, "m", now}}, {url, {url, "abc", now - 119s}}}));
    taskIs("processing");
    service.resumePendingTranscriptions();
    time.settle();
    EXPECT_EQ(status(), Status::processing);
    EXPECT_EQ(process.signals.all.at(0), "transcription_resumed age_min=1");
    EXPECT_TRUE(hasLine("[Transcription] Resuming pending task for 2026-01-15_10-30-00.m4a (1 min old)"));
    EXPECT_EQ(PendingDocument::parsed(pendingFile())->size(), 1U);
    taskGives("Hi");
    time.advance(5s);
    EXPECT_EQ(textOf(Library::kFolder / "2026-01-15_10-30-00.txt"), "Hi");
    EXPECT_EQ(polls(), 2U);
    EXPECT_EQ(process.signals.all.size(), 3U);
}

TEST_F(TranscriptionServiceTest, NeverUploadsToResume) {
    EXPECT_EQ(transcribe(process, TranscriptionSource::resume).failure(), "task_lost");
    EXPECT_EQ(status(), Status::none);
    EXPECT_TRUE(process.signals.all.empty());
    for (const std::string last : {R"(200 {"task_id":"t","status":"failed","error":"x"})", "404 "}) {
        putPending("old", 46min);
        serverSays("/status/", std::stoi(last), last.substr(4));
        EXPECT_EQ(transcribe(process, TranscriptionSource::resume).failure(), "task_lost");
        EXPECT_EQ(pendingFile(), "[]");
    }
    putPending("old", 46min);
    taskIs("processing");
    EXPECT_EQ(transcribe(process, TranscriptionSource::resume).failure(), "timeout");
    EXPECT_EQ(uploads(), 0U);
}

// Network

TEST_F(TranscriptionServiceTest, TriesOnceMoreWhenTheNetworkIsBack) {
    const auto failToUpload = [&] {
        const auto run = transcribe(process);
        time.advance(40s);
        EXPECT_EQ(run.failure(), "network");
    };
    failToUpload();
    process.network.set(true);  // nothing was lost
    time.advance(5s);
    EXPECT_EQ(uploads(), 3U);
    process.network.set(false);
    process.network.set(true);
    time.advance(4s);
    EXPECT_EQ(uploads(), 3U);
    time.advance(41s);
    EXPECT_EQ(uploads(), 6U);
    EXPECT_NE(process.signals.all.at(2).find("source=network_retry"), std::string::npos);
    process.network.set(false);
    process.network.set(true);
    time.advance(1min);
    EXPECT_EQ(uploads(), 6U);
}

TEST_F(TranscriptionServiceTest, LetsOldFailuresAndThoseOfAnotherKindBe) {
    const auto loseAndFind = [&] {
        process.network.set(false);
        process.network.set(true);
        time.advance(1min);
    };
    const auto run = transcribe(process);
    time.advance(40s);
    time.advance(24h + 1s);
    loseAndFind();
    EXPECT_EQ(uploads(), 3U);
    const auto second = transcribe(process);
    time.advance(40s);
    serverSays("/submit", 402, "");
    EXPECT_EQ(transcribe(process).failure(), "limit_exceeded");
    loseAndFind();
    EXPECT_EQ(uploads(), 7U);
}

// Cancellation, renames and the Trash

TEST_F(TranscriptionServiceTest, LeavesNothingOfARunThatIsGivenUp) {
    server.will("/submit", FakeHttpClient::silence());
    auto run = transcribe(process);
    EXPECT_TRUE(files.exists("/tmp/upload_1.m4a"));
    service.cancel(url);
    time.settle();
    EXPECT_EQ(run.failure(), "network");
    EXPECT_EQ(server.abandoned, 1);
    EXPECT_FALSE(files.exists("/tmp/upload_1.m4a"));
    EXPECT_EQ(status(), Status::none);
    EXPECT_EQ(failure(), std::nullopt);

    serverTakes("abc");
    server.will("/status/", FakeHttpClient::silence());
    {
        const auto dropped = transcribe(process);
        EXPECT_EQ(status(), Status::processing);
    }
    EXPECT_EQ(status(), Status::none);
    EXPECT_EQ(server.abandoned, 2);
    EXPECT_NE(pendingFile(), "[]");
    process.downsampler.isSlow = true;
    files.put(Process::kPending, "[]");
    base::TaskScope scope(time);
    scope.start(service.transcribeAndSummarize(url, TranscriptionSource::automatic, {}));
    time.settle();
    service.cancel(url);
    time.settle();
    EXPECT_TRUE(scope.isIdle());
    EXPECT_EQ(status(), Status::none);
}

TEST_F(TranscriptionServiceTest, KeepsATaskWhoseResultWasGivenUp) {
    serverTakes("abc");
    FakeHttpClient::Gate gate;
    server.will("/status/", FakeHttpClient::json(200, R"({"task_id":"t","status":"completed","text":"Hi",)"
                                                      R"("duration_seconds":1,"provider":"p","usage":)" +
                                                          kUsage + "}")
                                .when(gate));
    const auto run = transcribe(process);
    gate.succeed(true);
    service.cancel(url);
    time.settle();
    EXPECT_EQ(run.failure(), "network");
    EXPECT_EQ(PendingDocument::parsed(pendingFile())->at(url).taskId, "abc");
    EXPECT_EQ(textOf(Library::kFolder / "2026-01-15_10-30-00.txt"), "(none)");
}

TEST_F(TranscriptionServiceTest, FollowsARecordingThatTheUserRenames) {
    serverTakes("abc");
    taskIs("processing");
    const auto run = transcribe(process);
    process.library.storage->renameRecording(process.library.entry("2026-01-15_10-30-00"), "Budget");
    const Path renamed = Library::kFolder / "Budget.m4a";
    EXPECT_EQ(TranscriptionTest::status(process, renamed), Status::processing);
    EXPECT_TRUE(PendingDocument::parsed(pendingFile())->contains(renamed));
    taskGives("Hi");
    time.advance(5s);
    EXPECT_EQ(run.result, renamed) << run.failure();
    EXPECT_EQ(textOf(Library::kFolder / "Budget.txt"), "Hi");
    EXPECT_EQ(pendingFile(), "[]");
    EXPECT_EQ(service.activeTranscriptions.get().size(), 1U);
}

TEST_F(TranscriptionServiceTest, EndsTheRunOfARecordingThatGoesToTheTrash) {
    serverTakes("abc");
    server.will("/status/", FakeHttpClient::silence());
    const auto run = transcribe(process);
    process.library.storage->deleteRecording(process.library.entry("2026-01-15_10-30-00"));
    EXPECT_EQ(pendingFile(), "[]");
    time.settle();
    EXPECT_EQ(run.failure(), "network");
    EXPECT_EQ(server.abandoned, 1);
    EXPECT_TRUE(service.activeTranscriptions.get().empty());
    EXPECT_TRUE(service.lastFailure.get().empty());
}

}  // namespace
}  // namespace tessivox::transcription
