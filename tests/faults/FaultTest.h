#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "faults/Ending.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/qt/QtHttpClient.h"
#include "qt/QtTest.h"
#include "support/FakeServerLocation.h"
#include "support/Library.h"
#include "transcription/TranscriptionTest.h"

namespace tessivox::transcription {

/// Counts what goes to the server as an upload, the repeats included.
class UploadCounter final : public base::HttpClient {
public:
    explicit UploadCounter(base::HttpClient& next) : next_(next) {}
    int uploads = 0;
    base::Task<base::HttpResponse> send(base::HttpRequest request) override {
        if (request.url.ends_with("/transcribe/submit")) ++uploads;
        return next_.send(std::move(request));
    }

private:
    base::HttpClient& next_;
};

/// Makes copies of so many bytes.
class SizedDownsampler final : public AudioDownsampler {
public:
    SizedDownsampler(base::Files& files, Path folder, std::size_t size)
        : files_(files), folder_(std::move(folder)), size_(size) {}

    base::Task<std::unique_ptr<UploadCopy>> makeUploadCopy(Path, UploadSettings) override {
        co_return std::make_unique<Copy>(files_, folder_ / "copy.m4a", std::string(size_, 'x'));
    }

private:
    struct Copy final : UploadCopy {
        base::Files& files;
        Path file;
        Copy(base::Files& where, Path name, const std::string& bytes) : files(where), file(std::move(name)) {
            files.create(file)->append(std::as_bytes(std::span(bytes)));
        }
        ~Copy() override { files.removeIfPossible(file); }
        const Path& path() const override { return file; }
    };
    base::Files& files_;
    Path folder_;
    std::size_t size_;
};

/// Patience that a test has the time for. What must not time out has seconds, on a machine that is busy with more.
struct Patience {
    TranscriptionTimings timings = shortTimings();
    ServerTimeouts timeouts{10s, 10s, 10s, 10s, 10s, 3};

    static TranscriptionTimings shortTimings() {
        TranscriptionTimings timings;
        timings.pollInterval = 10ms;
        timings.longestBackoff = 40ms;
        timings.pollOutageLimit = 200ms;
        timings.pollDeadline = 30s;
        timings.uploadRetryDelays = {10ms, 20ms};
        return timings;
    }
    static Patience forUploads(base::Duration time) {
        Patience patience;
        patience.timeouts.submit = time;
        return patience;
    }
    static Patience forPolls(base::Duration time) {
        Patience patience;
        patience.timeouts.taskStatus = time;
        return patience;
    }
    static Patience forOutages(base::Duration time) {
        Patience patience;
        patience.timings.pollOutageLimit = time;
        return patience;
    }
    static Patience forTask(base::Duration time) {
        Patience patience;
        patience.timings.pollDeadline = time;
        return patience;
    }
};

/// The parts of the program that transcribe, on the real disk, loop and network. One life of the process.
struct RealProcess {
    testing::NoChooser chooser;
    testing::NoLoginItem loginItem;
    testing::FakeLengths lengths;
    testing::UtcTime utc;
    testing::MemoryPreferences preferences;
    testing::SentSignals signals;
    Breadcrumbs breadcrumbs;
    telemetry::CrashReporter crashReporter{breadcrumbs, preferences, [](std::span<std::byte>) {}, {}};
    testing::FakeAlerts alerts;
    FakeNetwork network;
    testing::FakeServerLocation location;
    core::AppSettings settings;
    library::Trash trash;
    library::RecordingStorage storage;
    SizedDownsampler downsampler;
    DeviceIdentity identity;
    qt::QtHttpClient web{"Tessivox/1.2"};
    UploadCounter http{web};
    ServerClient client;
    TranscriptionService service;

    RealProcess(posix::EventLoop& loop, base::Files& files, const Path& home, const std::string& url, Patience patience,
                std::size_t uploadSize)
        : settings(preferences, files, {home, home / "data", home / "config", home}, chooser, loginItem),
          trash(files, utc, loop, home / "data"),
          storage({loop, files, in(home), trash, lengths, testing::countingIDs()}),
          downsampler(files, home / "copies", uploadSize),
          identity(preferences, files, home / "token.json", [] { return "DEVICE"; }),
          client({http, location, identity, "1.2", [] { return "BOUNDARY"; }, patience.timeouts}),
          service({loop,
                   files,
                   preferences,
                   settings,
                   storage,
                   client,
                   location,
                   identity,
                   downsampler,
                   network,
                   alerts,
                   signals.analytics,
                   crashReporter,
                   home / "data",
                   "1.2",
                   [] { return "ATTEMPT"; },
                   {},
                   {},
                   patience.timings}) {
        location.url = url;
    }

private:
    core::AppSettings& in(const Path& home) {
        settings.recordingsDirectoryPath.set((home / "Recordings").string());
        return settings;
    }
};

/// A recording and the server that is to transcribe it.
class FaultTest : public testing::QtTest {
protected:
    posix::PosixFiles files{loop};
    Path home = makeHome();
    Path url = home / "Recordings/2026-01-15_10-30-00.m4a";
    Path transcript = home / "Recordings/2026-01-15_10-30-00.txt";
    std::vector<std::string> lines;
    std::function<void()> whenProcessing;  ///< called once

    FaultTest() {
        makeRecording();
        base::setLogSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~FaultTest() override {
        base::setLogSink({});
        std::filesystem::remove_all(home);
    }

    /// On a machine where nothing has been transcribed yet.
    void makeRecording() {
        std::filesystem::remove(home / "token.json");
        for (const auto* folder : {"Recordings", "data", "copies"}) {
            std::filesystem::remove_all(home / folder);
            files.makeFolders(home / folder);
        }
        const auto sound = testing::silentMovie(60);
        files.create(url)->append(std::as_bytes(std::span(sound)));
    }

    /// Transcribes as the user asks for it, or goes on with the saved task as a start of the program does.
    Ending run(const std::string& server, const Patience& patience, std::size_t uploadSize, bool hasOldToken = false) {
        RealProcess process(loop, files, home, server, patience, uploadSize);
        if (hasOldToken) process.identity.storeDeviceToken(server, "OLD");
        const auto processing = process.service.activeTranscriptions.observe([&](const auto& all) {
            if (whenProcessing && entryOf(all) == TranscriptionStatus::processing) std::exchange(whenProcessing, {})();
        });
        const auto source = isPending() ? TranscriptionSource::resume : TranscriptionSource::manual;
        Ending ending;
        ending.failure = outcome(process.service.transcribe(url, source, std::nullopt));
        ending.status = entryOf(process.service.activeTranscriptions.get()).value_or(TranscriptionStatus::none);
        ending.kind = entryOf(process.service.lastFailure.get());
        ending.hint = entryOf(process.service.lastFailureHint.get()).value_or("");
        ending.task = isPending() ? Task::kept : Task::gone;
        ending.uploads = process.http.uploads;
        ending.transcript = files.exists(transcript) ? Transcript::there : Transcript::absent;
        EXPECT_TRUE(files.list(home / "copies").empty()) << "the upload copy stays";
        return ending;
    }
    /// What the rules say of a run after one that ended like this, once the server is sane.
    static Ending mended(const Ending& before) { return finishes(before.task == Task::kept ? 0 : 1); }

    bool isPending() {
        const auto file = home / "data/pending_transcriptions.json";
        if (!files.exists(file)) return false;
        const auto tasks = PendingDocument::parsed(files.readAll(file, PendingDocument::kMaxSize));
        return tasks.value().contains(url);
    }
    std::string transcriptText() { return files.exists(transcript) ? files.readAll(transcript, 1 << 20) : "(none)"; }

private:
    static Path makeHome() {
        std::string name = "/tmp/tessivox-faults-XXXXXX";
        return {::mkdtemp(name.data())};
    }
    std::string outcome(base::Task<Path> task) {
        try {
            finish(std::move(task));
            return "";
        } catch (const std::exception&) {
            const auto known = asTranscriptionError(std::current_exception());
            return known ? known->telemetryCode() : base::describe(std::current_exception());
        }
    }
    template <typename T>
    std::optional<T> entryOf(const PerRecording<T>& map) const {
        const auto found = map.find(url);
        return found == map.end() ? std::nullopt : std::optional(found->second);
    }
};

}  // namespace tessivox::transcription
