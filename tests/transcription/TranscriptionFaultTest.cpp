#include "TranscriptionTest.h"

namespace tessivox::transcription {
namespace {

const Path kTranscript = Library::kFolder / "2026-01-15_10-30-00.txt";

/// Several processes, and ones that die.
class TranscriptionFaultTest : public TranscriptionTest {
protected:
    void serverWorks(const std::string& more = "") {
        serverTakes("abc");
        taskIs("processing");
        const auto completed = R"({"task_id":"abc","status":"completed","text":"Hi","duration_seconds":1,)"
                               R"("provider":"p","usage":)" +
                               kUsage + more + "}";
        server.usually("/status/", FakeHttpClient::json(200, completed));
    }
};

TEST_F(TranscriptionFaultTest, LeavesTheRecordingOfAnotherProcessAlone) {
    Process one(time, files, server), two(time, files, server);
    serverWorks();
    const auto run = transcribe(one);
    two.service->resumePendingTranscriptions();
    EXPECT_EQ(transcribe(two).failure(), "already_in_progress");
    EXPECT_EQ(status(two, url), TranscriptionStatus::none);
    EXPECT_TRUE(two.signals.all.empty());
    time.advance(10min);
    EXPECT_EQ(run.failure(), "");
    EXPECT_EQ(uploads(), 1U);
    EXPECT_EQ(polls(), 2U);
    EXPECT_TRUE(two.signals.all.empty());
}

TEST_F(TranscriptionFaultTest, TakesOverWhatAnotherProcessUploadsAndLeaves) {
    Process keeper(time, files, server);
    keeper.service->resumePendingTranscriptions();
    serverWorks();
    {
        Process sender(time, files, server);
        const auto run = transcribe(sender);
        EXPECT_EQ(status(sender, url), TranscriptionStatus::processing);
    }
    files.emitChanges();
    time.settle();
    EXPECT_EQ(textOf(kTranscript), "Hi");
    EXPECT_EQ(uploads(), 1U);
    EXPECT_EQ(keeper.signals.all.at(0), "transcription_resumed age_min=0");
    EXPECT_EQ(pendingFile(), "[]");
}

TEST_F(TranscriptionFaultTest, LooksAgainAfterAProcessThatDiedWithoutAWord) {
    Process keeper(time, files, server);
    serverWorks();
    auto sender = std::make_unique<Process>(time, files, server);
    auto run = std::make_unique<Started<Path>>(
        time, sender->service->transcribe(url, TranscriptionSource::manual, std::nullopt));
    keeper.service->resumePendingTranscriptions();
    time.settle();
    EXPECT_TRUE(keeper.signals.all.empty());
    run.reset();
    sender.reset();
    time.advance(59s);
    EXPECT_EQ(textOf(kTranscript), "(none)");
    time.advance(1s);
    EXPECT_EQ(textOf(kTranscript), "Hi");
}

TEST_F(TranscriptionFaultTest, TakesNothingUpAgainThatItWaitedForInVain) {
    Process process(time, files, server);
    process.service->resumePendingTranscriptions();
    serverTakes("abc");
    server.usually("/status/", FakeHttpClient::json(200, R"({"task_id":"t","status":"processing"})"));
    const auto run = transcribe(process);
    time.advance(46min);
    EXPECT_EQ(run.failure(), "timeout");
    const auto known = polls();
    files.emitChanges();
    time.advance(10min);
    EXPECT_EQ(polls(), known);
    EXPECT_NE(pendingFile(), "[]");
}

/// The machine goes down before each operation on the disk in turn, or the process is killed there.
void expectOneTranscript(std::uint64_t n, std::size_t uploads, std::size_t transcripts, bool wasPending) {
    EXPECT_LE(uploads, 1U) << n;
    EXPECT_LE(transcripts, 1U) << n;
    EXPECT_TRUE(!wasPending || transcripts == 1) << n;
}

TEST_F(TranscriptionFaultTest, UploadsOnceAndKeepsOneTranscriptWhereverItIsCut) {
    using Unsynced = CrashingFiles::Unsynced;
    for (const auto unsynced : {Unsynced::lost, Unsynced::prefix, Unsynced::kept}) {
        for (std::uint64_t n = 1; n < 200; ++n) {
            CrashingFiles disk;
            FakeHttpClient fresh;
            std::swap(server, fresh);
            disk.put(url, testing::silentMovie(60));
            serverWorks(R"(,"title":"Plan B","gist":"g")");
            bool isDone = false;
            {
                Process first(time, disk, server);
                disk.haltAt(disk.operationCount() + n);
                const auto run = transcribe(first);
                time.advance(5s);
                isDone = !disk.isHalted();
            }
            disk.crash(unsynced, n);
            disk.heal();
            const auto isThere = [&](const std::string& name) { return disk.exists(Library::kFolder / name); };
            const bool wasSent = server.requestsTo("/submit").size() == 1;
            bool wasPending = false;
            {
                Process second(time, disk, server);
                const auto text = disk.exists(Process::kPending) ? disk.readAll(Process::kPending, 4096) : "[]";
                wasPending = wasSent && PendingDocument::parsed(text).value().contains(url);
                second.service->resumePendingTranscriptions();
                time.advance(5s);
                EXPECT_TRUE(second.service->activeTranscriptions.get().empty() ||
                            second.service->activeTranscriptions.get().begin()->second ==
                                TranscriptionStatus::completed);
            }
            std::size_t transcripts = 0;
            for (const auto& name : disk.list(Library::kFolder)) transcripts += name.extension() == ".txt" ? 1U : 0U;
            expectOneTranscript(n, server.requestsTo("/submit").size(), transcripts, wasPending);
            EXPECT_EQ(isThere("2026-01-15_10-30-00.m4a") + isThere("2026-01-15_10-30-00_Plan-B.m4a"), 1) << n;
            for (const auto& name : disk.list(Process::kFolder)) {
                EXPECT_FALSE(name.native().starts_with("transcribing")) << n;
            }
            if (isDone) break;
            ASSERT_LT(n, 199U);
        }
    }
}

TEST_F(TranscriptionFaultTest, GoesOnAfterAnyFailureOfTheDisk) {
    for (std::uint64_t n = 1; n < 200; ++n) {
        CrashingFiles disk;
        FakeHttpClient fresh;
        std::swap(server, fresh);
        disk.put(url, testing::silentMovie(60));
        serverWorks();
        Process process(time, disk, server);
        const auto before = disk.operationCount();
        disk.failAt(before + n, CrashingFiles::Fault::noSpace);
        const auto run = transcribe(process);
        time.advance(5s);
        const bool isDone = disk.operationCount() < before + n;
        disk.heal();
        EXPECT_FALSE(run.isRunning()) << n;
        EXPECT_EQ(uploads(), 1U) << n;
        EXPECT_EQ(disk.exists(kTranscript), run.failure().empty()) << n << run.failure();
        if (isDone) break;
        ASSERT_LT(n, 199U);
    }
}

}  // namespace
}  // namespace tessivox::transcription
