#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Completion.h"
#include "base/Log.h"
#include "base/TaskScope.h"
#include "services/telemetry/CrashReporter.h"
#include "support/CrashingFiles.h"
#include "support/FakeAlerts.h"
#include "support/FakeHttpClient.h"
#include "support/Library.h"
#include "support/ManualRuntime.h"
#include "support/MemoryPreferences.h"
#include "support/SentSignals.h"
#include "transcription/TranscriptionError.h"
#include "transcription/TranscriptionFailure.h"
#include "transcription/TranscriptionService.h"

namespace tessivox::transcription {

using namespace std::chrono_literals;
using testing::CrashingFiles;
using testing::FakeHttpClient;
using testing::Library;
using testing::ManualRuntime;
using Path = std::filesystem::path;

struct FakeLocation final : ServerLocation {
    base::Task<std::string> baseURL() override { co_return "https://server.example/api"; }
    std::string shownBaseURL() const override { return "https://server.example/api"; }
};

/// Makes copies that hold "copy", as long as it is told to.
class FakeDownsampler final : public AudioDownsampler {
public:
    explicit FakeDownsampler(base::Files& files) : files_(files) {}
    bool fails = false;
    bool isSlow = false;

    base::Task<std::unique_ptr<UploadCopy>> makeUploadCopy(Path, UploadSettings settings) override {
        EXPECT_TRUE(settings.sampleRate == 16000 && settings.channels == 1 && settings.bitRate == 32000);
        const base::Completion<int> never;
        if (isSlow) co_await never;
        if (fails) throw DownsampleError(DownsampleError::Code::noAudioTrack, "No audio track in source file");
        auto copy = std::make_unique<Copy>(files_, "/tmp/upload_" + std::to_string(++made_) + ".m4a");
        co_return std::unique_ptr<UploadCopy>(std::move(copy));
    }

private:
    struct Copy final : UploadCopy {
        base::Files& files;
        Path file;
        Copy(base::Files& where, Path name) : files(where), file(std::move(name)) {
            files.makeFolders("/tmp");
            files.removeIfPossible(file);
            files.create(file)->append(std::as_bytes(std::span(std::string_view("copy"))));
        }
        ~Copy() override { files.removeIfPossible(file); }
        const Path& path() const override { return file; }
    };
    base::Files& files_;
    int made_ = 0;
};

struct FakeNetwork final : NetworkPath {
    bool isThere = true;
    base::Signal<bool> changed;
    bool isAvailable() const override { return isThere; }
    base::Subscription onChange(std::function<void(bool)> handler) override {
        return changed.observe(std::move(handler));
    }
    void set(bool available) { changed.emit(isThere = available); }
};

struct Breadcrumbs final : telemetry::CrashSink {
    std::vector<std::string> all;
    void start(const telemetry::CrashOptions&) override {}
    void setScope(const telemetry::CrashScope&) override {}
    void addBreadcrumb(const telemetry::Breadcrumb& crumb) override {
        all.push_back(std::string(telemetry::levelName(crumb.level)) + " " + crumb.category + ": " + crumb.message);
    }
};

/// A process with everything that a transcription needs, on a disk and with a server that others may share.
struct Process {
    static inline const Path kFolder = Library::kHome / "data/Tessivox";
    static inline const Path kPending = kFolder / "pending_transcriptions.json";

    Library library;
    testing::MemoryPreferences preferences;
    testing::SentSignals signals;
    Breadcrumbs breadcrumbs;
    telemetry::CrashReporter crashReporter{breadcrumbs, preferences, [](std::span<std::byte>) {}, {}};
    testing::FakeAlerts alerts;
    FakeNetwork network;
    FakeLocation location;
    FakeDownsampler downsampler;
    DeviceIdentity identity;
    ServerClient client;
    int surveys = 0, mails = 0;
    std::optional<TranscriptionService> service;

    Process(ManualRuntime& time, base::Files& files, base::HttpClient& server)
        : library(time, files),
          downsampler(files),
          identity(preferences, files, kFolder / "device-token.json", [] { return "DEVICE"; }),
          client({server, location, identity, "1.0", [] { return "BOUNDARY"; }}) {
        service.emplace(TranscriptionService::Parts{
            time, files, preferences, library.settings, *library.storage, client, location, identity, downsampler,
            network, alerts, signals.analytics, crashReporter, kFolder, "1.0", [] { return "ATTEMPT"; },
            [this] { ++mails; }, [this] { ++surveys; }});
        library.scan();
    }
};

/// A task that was started, and how it ended.
template <typename T>
class Started {
public:
    Started(ManualRuntime& time, base::Task<T> task) : scope_(time) {
        scope_.start(keep(std::move(task)));
        time.settle();
    }
    bool isRunning() const { return !result && !error; }
    std::optional<T> result;
    std::exception_ptr error;
    /// The error's code in logs, or else its sentence; empty if there is none.
    std::string failure() const {
        if (!error) return {};
        const auto known = asTranscriptionError(error);
        return known ? known->telemetryCode() : base::describe(error);
    }

private:
    base::TaskScope scope_;
    base::Task<void> keep(base::Task<T> task) {
        try {
            result.emplace(co_await task);
        } catch (...) {
            error = std::current_exception();
        }
    }
};

class TranscriptionTest : public ::testing::Test {
protected:
    static inline const std::string kUsage =
        R"({"used":3,"limit":10,"remaining":7,"can_transcribe":true,"resets_at":"2026-02"})";
    static inline const std::string kUsedUp =
        R"({"used":10,"limit":10,"remaining":0,"can_transcribe":false,"resets_at":"2026-02"})";
    const Path url = Library::kFolder / "2026-01-15_10-30-00.m4a";

    ManualRuntime time;
    CrashingFiles files;
    FakeHttpClient server;
    std::vector<std::string> lines;

    TranscriptionTest() {
        files.put(url, testing::silentMovie(60));
        base::setLogSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~TranscriptionTest() override { base::setLogSink({}); }

    void serverSays(const std::string& part, int status, const std::string& body) {
        server.will(part, FakeHttpClient::json(status, body));
    }
    void serverTakes(const std::string& task) {
        serverSays("/transcribe/submit", 200, R"({"task_id":")" + task + R"(","status":"pending"})");
    }
    void taskIs(const std::string& status, const std::string& more = "") {
        serverSays("/transcribe/status/", 200, R"({"task_id":"t","status":")" + status + "\"" + more + "}");
    }
    void taskGives(const std::string& text, const std::string& more = "") {
        taskIs("completed",
               R"(,"text":")" + text + R"(","duration_seconds":60,"provider":"p","usage":)" + kUsage + more);
    }
    std::size_t uploads() const { return server.requestsTo("/transcribe/submit").size(); }
    std::size_t polls() const { return server.requestsTo("/transcribe/status/").size(); }

    std::string textOf(const Path& file) {
        return files.exists(file) ? files.readAll(file, 1 << 20) : std::string("(none)");
    }
    std::string pendingFile() { return textOf(Process::kPending); }
    void putPending(const std::string& taskId, base::Duration age) {
        const PendingTask task{url, taskId, time.wallNow() - age};
        files.put(Process::kPending, PendingDocument::text({{url, task}}));
    }
    bool hasLine(const std::string& line) const { return std::ranges::find(lines, line) != lines.end(); }

    Started<Path> transcribe(Process& process, TranscriptionSource source = TranscriptionSource::manual) {
        return Started<Path>(time, process.service->transcribe(url, source, 60500ms));
    }
    static TranscriptionStatus status(const Process& process, const Path& recording) {
        const auto& all = process.service->activeTranscriptions.get();
        const auto found = all.find(recording);
        return found == all.end() ? TranscriptionStatus::none : found->second;
    }
    static std::optional<TranscriptionFailureKind> failureKind(const Process& process, const Path& recording) {
        const auto& all = process.service->lastFailure.get();
        const auto found = all.find(recording);
        return found == all.end() ? std::nullopt : std::optional(found->second);
    }
};

}  // namespace tessivox::transcription
