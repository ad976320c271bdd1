#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "audio/AudioRecorder.h"
#include "detection/RecordingController.h"
#include "support/CrashingFiles.h"
#include "support/FakeAlerts.h"
#include "support/FakeApplications.h"
#include "support/FakeEncoder.h"
#include "support/FakeInputUse.h"
#include "support/FakeSound.h"
#include "support/FakeToasts.h"
#include "support/Library.h"
#include "support/ManualRuntime.h"

namespace tessivox::detection {

using namespace std::chrono_literals;
using Path = std::filesystem::path;

/// Signals and breadcrumbs together, in the order in which they go out: "recording_paused", "call_detected a=1 b=2",
/// "(info call) Call detected", with data behind it as in signals.
class Journal final : public telemetry::AnalyticsSink, public telemetry::CrashSink {
public:
    std::vector<std::string> lines;

    void initialise(std::string_view) override {}
    void send(std::string_view name, const telemetry::Parameters& parameters) override {
        lines.push_back(line(std::string(name), parameters));
    }
    void sendActivation(std::string_view feature) override { lines.push_back("activation " + std::string(feature)); }
    void start(const telemetry::CrashOptions&) override {}
    void setScope(const telemetry::CrashScope&) override {}
    void addBreadcrumb(const telemetry::Breadcrumb& crumb) override {
        const auto level = std::string(telemetry::levelName(crumb.level));
        lines.push_back(line("(" + level + " " + crumb.category + ") " + crumb.message, crumb.data));
    }

    std::vector<std::string> take() { return std::exchange(lines, {}); }
    bool has(const std::string& text) const { return std::ranges::find(lines, text) != lines.end(); }

private:
    static std::string line(std::string text, const std::map<std::string, std::string>& data) {
        for (const auto& [key, value] : data) text += " " + key + "=" + value;
        return text;
    }
};

/// All that records calls, on a disk in memory and in virtual time.
struct RecordingWorld {
    static inline const Path kIncomplete = "/home/user/data/Incomplete";
    static inline const std::string kZoom = "us.zoom.xos";
    /// By then devices have answered.
    static constexpr base::Duration kSoon = 10ms;

    testing::CrashingFiles disk;
    testing::ManualRuntime time;
    testing::Library library{time, disk};
    core::AppSettings& settings = library.settings;
    core::AppState state{time};
    testing::FakeSound sound{time};
    testing::FakeConverter converters;
    testing::FakeEncoder encoders;
    audio::AudioLevelMonitor levels{time};
    audio::StereoAudioWriter writer{time, disk, converters, encoders, kIncomplete};
    audio::AudioRecorder recorder{
        {time, disk, library.utc, settings, state, sound, sound, levels}, writer, kIncomplete};
    Journal journal;
    telemetry::Analytics analytics{journal, library.preferences, [] { return true; }, "1.0"};
    telemetry::CrashReporter crashReporter{journal, library.preferences, [](std::span<std::byte>) {}, {}};
    testing::FakeAlerts alerts;
    testing::FakeInputUse microphones;
    testing::FakeApplications applications;
    testing::FakeToasts toasts;
    bool canRecord = true;
    CallDetector detector{{time, microphones, applications, library.preferences, analytics, "com.tessivox"}};
    RecordingPromptWindowController startPrompt{
        {time, settings, state, detector, toasts, analytics, crashReporter, [this] { return canRecord; }}};
    StopRecordingPromptWindowController stopPrompt{{time, state, toasts, analytics, crashReporter}};
    std::vector<std::string> transcribed, left, revealed;
    RecordingController controller{parts()};

    RecordingWorld() {
        time.setWallTime(base::WallTime(std::chrono::sys_days{std::chrono::March / 1 / 2026}) + 9h);
        controller.wireCallDetection();
        time.settle();
    }

    RecordingController::Parts parts() {
        return {time,
                settings,
                state,
                recorder,
                detector,
                startPrompt,
                stopPrompt,
                *library.storage,
                analytics,
                crashReporter,
                alerts,
                [this](Path url, base::Duration length) { return transcribe(std::move(url), length); },
                [this](const Path& url, base::Duration length) { left.push_back(described(url, length)); },
                [this](const Path& file) { revealed.push_back(file.filename()); }};
    }
    base::Task<void> transcribe(Path url, base::Duration length) {
        transcribed.push_back(described(url, length));
        co_return;
    }
    static std::string described(const Path& url, base::Duration length) {
        return url.filename().string() + " " + std::to_string(length / 1s) + " s";
    }

    void soon() { time.advance(kSoon); }
    void set(bool showsPrompt, bool startsByItself, bool stopsByItself = false) {
        settings.showRecordingPrompt.set(showsPrompt);
        settings.autoStartRecording.set(startsByItself);
        settings.autoStopRecording.set(stopsByItself);
    }
    /// An application opens the microphone, and that becomes a call.
    void callStarts(const std::string& bundleID = kZoom) {
        applications.run(microphones.open(bundleID), bundleID, "Zoom");
        time.advance(CallDetector::kDebounceInterval + kSoon);
    }
    void callEnds() {
        microphones.setProcesses({});
        time.advance(CallDetector::kDebounceInterval + kSoon);
    }

    using Refusal = RecordingController::Refusal;
    using Stopped = RecordingController::Stopped;
    template <typename T>
    using Answer = std::shared_ptr<std::optional<T>>;
    /// The answers hold nothing while they are awaited.
    Answer<Refusal> begin(CaptureChoice capture = CaptureChoice::asSettings) {
        return started(controller.startRecording(capture, RecordingSource::manual));
    }
    Answer<Stopped> end() { return started(controller.stopRecording()); }
    /// The sentence of an answer; "done" without one, "awaited" before.
    static std::string text(const Answer<Refusal>& answer) { return *answer ? (*answer)->value_or("done") : "awaited"; }
    static std::string text(const Answer<Stopped>& answer) {
        return *answer ? (*answer)->refusal.value_or("done") : "awaited";
    }
    /// Both sources are heard for so long.
    void hear(base::Duration span) {
        const std::vector<float> samples(4800, 0.1F);
        for (; span > 0s; span -= 100ms) {
            sound.play("pci", {{48000, 1}, samples}, time.now());
            sound.play("speakers.monitor", {{48000, 1}, samples}, time.now());
            time.advance(100ms);
        }
    }
    std::string lastError() const { return state.lastError.get() ? state.lastError.get()->description() : ""; }
    /// "recording", "paused" or "idle", and "+" while something is still to be done.
    std::string phase() const {
        if (!state.isRecording.get()) return controller.isAtWork.get() ? "idle+" : "idle";
        return std::string(state.isPaused.get() ? "paused" : "recording") + (controller.isAtWork.get() ? "+" : "");
    }

private:
    base::TaskScope scope_{time};

    template <typename T>
    Answer<T> started(base::Task<T> operation) {
        const auto answer = std::make_shared<std::optional<T>>();
        scope_.start(keep(std::move(operation), answer));
        soon();
        return answer;
    }
    template <typename T>
    static base::Task<void> keep(base::Task<T> operation, Answer<T> answer) {
        auto given = co_await operation;
        answer->emplace(std::move(given));
    }
};

}  // namespace tessivox::detection
