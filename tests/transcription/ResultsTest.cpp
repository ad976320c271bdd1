#include "TranscriptionTest.h"
#include "support/ForwardingFiles.h"

namespace tessivox::transcription {
namespace {

const std::string kTitled = R"(,"title":"Q3: Review / Plan?","gist":"We agreed.")";
const Path kRenamed = Library::kFolder / "2026-01-15_10-30-00_Q3-Review-Plan.m4a";

/// A link is all that lies under the name.
struct LinkedFiles final : testing::ForwardingFiles {
    using ForwardingFiles::ForwardingFiles;
    Path link;
    std::optional<base::FileStatus> linkStatus(const Path& path) const override {
        return path == link ? base::FileStatus() : ForwardingFiles::linkStatus(path);
    }
};

class ResultsTest : public TranscriptionTest {
protected:
    Process process{time, files, server};
    TranscriptionService& service = *process.service;
    ResultFiles& results = service.results();

    std::string beside(const Path& recording, const std::string& extension) {
        return textOf(recording.parent_path() / (recording.stem().native() + extension));
    }
    void putBeside(const Path& recording, const std::string& extension, const std::string& text) {
        files.put(recording.parent_path() / (recording.stem().native() + extension), text);
    }
    Started<Path> summarize(const Path& recording) {
        return Started<Path>(time, service.summaries().summarizeManually(recording));
    }
    void serverSummarizes(const std::string& text) {
        serverSays("/summarize", 200, R"({"summary":")" + text + R"(","usage":)" + kUsage + "}");
    }
    Started<Path> transcribeTitled() {
        serverTakes("abc");
        taskGives("Hi", kTitled);
        return transcribe(process);
    }
};

TEST_F(ResultsTest, NamesARecordingAfterTheTitleThatTheServerGives) {
    putBeside(url, "_mic.m4a", "mic");
    putBeside(url, "_system.m4a", "system");
    putBeside(url, ".summary.txt", "An older summary");
    const auto run = transcribeTitled();
    ASSERT_EQ(run.result, kRenamed) << run.failure();
    EXPECT_EQ(beside(kRenamed, ".txt"), "Hi");
    EXPECT_EQ(beside(kRenamed, ".summary.txt"), "An older summary");
    EXPECT_EQ(beside(kRenamed, "_mic.m4a") + beside(kRenamed, "_system.m4a"), "micsystem");
    EXPECT_EQ(files.list(Library::kFolder).size(), 5U);
    EXPECT_EQ(process.library.names(), "2026-01-15_10-30-00_Q3-Review-Plan");
    EXPECT_EQ(process.library.storage->readMetadata(kRenamed, library::kTitleAttribute), "Q3: Review / Plan?");
    EXPECT_EQ(results.meetingTitle(kRenamed), "Q3: Review / Plan?");
    EXPECT_EQ(results.gist(kRenamed), "We agreed.");
    EXPECT_EQ(status(process, kRenamed), TranscriptionStatus::completed);
    EXPECT_EQ(status(process, url), TranscriptionStatus::none);
    EXPECT_NE(process.signals.all.back().find("has_gist=true"), std::string::npos);
    EXPECT_TRUE(hasLine("[Rename] Renamed files to: 2026-01-15_10-30-00_Q3-Review-Plan"));
    EXPECT_EQ(results.renameFromTitle(kRenamed), std::nullopt);
}

TEST_F(ResultsTest, ReplacesNothingByARename) {
    putBeside(kRenamed, ".txt", "Another's");
    ASSERT_EQ(transcribeTitled().result, kRenamed);
    EXPECT_EQ(beside(kRenamed, ".txt"), "Another's");
    EXPECT_EQ(beside(url, ".txt"), "Hi");
}

TEST_F(ResultsTest, KeepsTheFilesTogetherIfTheRecordingsNewNameIsTaken) {
    files.put(kRenamed, "Another recording");
    ASSERT_EQ(transcribeTitled().result, url);
    EXPECT_EQ(beside(kRenamed, ".txt"), "(none)");
    EXPECT_EQ(beside(url, ".txt"), "Hi");
    EXPECT_EQ(textOf(kRenamed), "Another recording");
    EXPECT_EQ(results.meetingTitle(url), "Q3: Review / Plan?");
}

TEST_F(ResultsTest, KeepsEverySiblingsNameWithinTheLimits) {
    std::string title;
    for (int count = 0; count < 60; ++count) title += "\U0001F469\u200D\U0001F469\u200D\U0001F467";
    results.storeTitle(url, title, std::nullopt);
    const auto renamed = results.renameFromTitle(url);
    ASSERT_TRUE(renamed);
    EXPECT_LE(renamed->stem().native().size() + std::string(".summary.txt").size(), 255U);
    EXPECT_GT(renamed->stem().native().size(), 220U);
    results.saveSummary(*renamed, "Fits");
    EXPECT_EQ(beside(*renamed, ".summary.txt"), "Fits");
}

TEST_F(ResultsTest, TranscribesARecordingWhoseNameIsNoText) {
    const Path odd = Library::kFolder / "m\xff\xfe.m4a";
    files.put(odd, testing::silentMovie(5));
    serverTakes("abc");
    taskIs("processing");
    const Started<Path> run(time, service.transcribe(odd, TranscriptionSource::manual, {}));
    Process next(time, files, server);
    EXPECT_TRUE(PendingDocument::parsed(pendingFile())->contains(odd));
    taskGives("Hi", kTitled);
    time.advance(5s);
    EXPECT_EQ(run.result, odd) << run.failure();
    EXPECT_EQ(beside(odd, ".txt"), "Hi");
    EXPECT_EQ(pendingFile(), "[]");
}

TEST_F(ResultsTest, SavesNothingOverWhatIsNoFile) {
    files.put(Library::kFolder / "2026-01-15_10-30-00.txt/inside", "x");
    EXPECT_THROW(results.saveTranscript(url, "Hi"), base::FileError);
    EXPECT_FALSE(results.hasSummary(url));
    LinkedFiles linked(files);
    linked.link = Library::kFolder / "2026-01-15_10-30-00.summary.txt";
    ResultFiles behindLink(linked, *process.library.storage);
    EXPECT_THROW(behindLink.saveSummary(url, "Hi"), base::FileError);
    EXPECT_EQ(files.list(Library::kFolder).size(), 2U);
}

TEST_F(ResultsTest, LeavesTheOldTextOrTheNewOneWhateverFails) {
    const auto target = Library::kFolder / "2026-01-15_10-30-00.txt";
    for (std::uint64_t n = 1;; ++n) {
        files.put(target, "old");
        files.haltAt(files.operationCount() + n);
        try {
            ResultFiles(files, *process.library.storage).saveTranscript(url, "new text");
        } catch (const base::FileError&) {
            EXPECT_TRUE(files.isHalted());
        }
        const bool isSaved = !files.isHalted();
        files.crash(CrashingFiles::Unsynced::lost, n);
        files.heal();
        const auto text = textOf(target);
        EXPECT_TRUE(text == "new text" || (text == "old" && !isSaved)) << n << " " << text;
        if (isSaved) break;
    }
    results.saveTranscript(url, "again");  // over what the crashes left
    EXPECT_EQ(textOf(target), "again");
    EXPECT_EQ(files.list(Library::kFolder).size(), 2U);
}

TEST_F(ResultsTest, RemembersWhatItHasLookedUp) {
    EXPECT_FALSE(results.hasTranscript(url));
    EXPECT_FALSE(results.hasSummary(url));
    EXPECT_EQ(results.meetingTitle(url), std::nullopt);
    EXPECT_EQ(results.gist(url), std::nullopt);
    putBeside(url, ".txt", "Hi");
    putBeside(url, ".summary.txt", "## Meeting title: Budget Q3\n\n## Summary\nWe **agreed**.\n");
    EXPECT_FALSE(results.hasTranscript(url));
    EXPECT_EQ(results.gist(url), std::nullopt);
    results.resetCaches();
    EXPECT_TRUE(results.hasTranscript(url));
    EXPECT_EQ(results.meetingTitle(url), "Budget Q3");
    EXPECT_EQ(results.gist(url), "We agreed.");
}

// Summaries

TEST_F(ResultsTest, SummarizesAndTakesTheTitleFromTheSummary) {
    EXPECT_EQ(summarize(url).failure(), "provider_error");
    EXPECT_EQ(process.signals.all.back(), "summary_failed mode=manual reason=provider_error");
    putBeside(url, ".txt", " Hi \n");
    results.resetCaches();
    serverSummarizes("Title: Plan B\\n## Summary\\nShort.");
    const auto run = summarize(url);
    const Path renamed = Library::kFolder / "2026-01-15_10-30-00_Plan-B.m4a";
    ASSERT_EQ(run.result, renamed) << run.failure();
    EXPECT_EQ(server.requestsTo("/summarize").at(0).body, R"({"text":" Hi \n"})");
    EXPECT_EQ(beside(renamed, ".summary.txt"), "Title: Plan B\n## Summary\nShort.");
    EXPECT_EQ(service.activeSummaries.get().at(renamed), SummaryStatus::completed);
    EXPECT_EQ(process.signals.all.back(), "summary_generated mode=manual");
}

TEST_F(ResultsTest, SummarizesByItselfIfTheUserWants) {
    process.library.settings.autoSummarize.set(true);
    base::TaskScope scope(time);
    const auto run = [&] {
        scope.start(service.transcribeAndSummarize(url, TranscriptionSource::automatic, 60s));
        time.settle();
    };
    serverTakes("abc");
    taskGives("Hi");
    serverSays("/summarize", 402, "");
    run();
    EXPECT_EQ(service.activeSummaries.get().at(url), SummaryStatus::failed);
    EXPECT_EQ(process.signals.all.back(), "summary_failed mode=auto reason=quota_exceeded");
    EXPECT_EQ(process.breadcrumbs.all.back(), "error error: Auto-summary failed");
    EXPECT_EQ(beside(url, ".txt"), "Hi");

    serverTakes("def");
    taskGives("Hi", kTitled);
    serverSummarizes("Short");
    run();
    EXPECT_EQ(beside(kRenamed, ".summary.txt"), "Short");
    EXPECT_EQ(server.requestsTo("/summarize").at(1).body, R"({"text":"Hi","title":"Q3: Review / Plan?"})");
    EXPECT_EQ(process.breadcrumbs.all.back(), "info summary: Auto-summary completed");
    EXPECT_TRUE(hasLine("Auto-summary completed for: 2026-01-15_10-30-00_Q3-Review-Plan.m4a"));
}

TEST_F(ResultsTest, KeepsASummaryFromARecordingInTheTrash) {
    putBeside(url, ".txt", "Hi");
    FakeHttpClient::Gate gate;
    server.will("/summarize", FakeHttpClient::json(200, R"({"summary":"S","usage":)" + kUsage + "}").when(gate));
    const auto run = summarize(url);
    EXPECT_EQ(service.activeSummaries.get().at(url), SummaryStatus::processing);
    process.library.storage->deleteRecording(process.library.entry("2026-01-15_10-30-00"));
    gate.succeed(true);
    EXPECT_EQ(run.failure(), "provider_error");
    EXPECT_TRUE(files.list(Library::kFolder).empty());
    EXPECT_TRUE(service.activeSummaries.get().empty());
}

TEST_F(ResultsTest, ForgetsASummaryThatIsGivenUp) {
    putBeside(url, ".txt", "Hi");
    server.will("/summarize", FakeHttpClient::silence());
    { const auto run = summarize(url); }
    EXPECT_TRUE(service.activeSummaries.get().empty());
    EXPECT_EQ(server.abandoned, 1);
}

// Quota

TEST_F(ResultsTest, TellsOfAUsedUpQuotaOncePerPeriodUnlessTheUserAsked) {
    base::TaskScope scope(time);
    const auto refuse = [&](const std::string& period) {
        serverSays("/usage", 200,
                   R"({"usage":{"used":10,"limit":10,"remaining":0,"can_transcribe":false)" + period + "}}");
        testing::await(time, service.refreshUsage());
        scope.start(service.transcribeAndSummarize(url, TranscriptionSource::automatic, {}));
        time.settle();
    };
    refuse("");
    refuse("");
    EXPECT_EQ(process.alerts.shown.size(), 1U);
    process.alerts.choose("OK");
    refuse(R"(,"resets_at":"2026-02")");
    refuse(R"(,"resets_at":"2026-02")");
    ASSERT_EQ(process.alerts.shown.size(), 2U);
    EXPECT_EQ(process.alerts.shown[1].message, "Transcription Paused");
    process.alerts.choose("Contact Support");
    EXPECT_EQ(process.mails, 1);
    const Started<Path> asked(time, service.transcribeManually(url, {}));
    EXPECT_EQ(process.alerts.shown.size(), 3U);
    process.alerts.choose("OK");
    EXPECT_EQ(asked.failure(), "limit_exceeded");
}

TEST_F(ResultsTest, AsksForADeviceTokenOnce) {
    const auto refresh = [&] {
        serverSays("/usage", 200, R"({"usage":)" + kUsage + "}");
        testing::await(time, service.refreshUsage());
        time.settle();
    };
    refresh();
    refresh();
    EXPECT_EQ(server.requestsTo("/user/me").size(), 1U);
    EXPECT_EQ(service.currentUsage.get()->resetsAt, "2026-02");

    Process next(time, files, server);
    next.identity.storeDeviceToken("https://server.example/api", "secret");
    serverSays("/usage", 200, R"({"usage":)" + kUsage + "}");
    testing::await(time, next.service->refreshUsage());
    time.settle();
    EXPECT_EQ(server.requestsTo("/user/me").size(), 1U);
}

}  // namespace
}  // namespace tessivox::transcription
