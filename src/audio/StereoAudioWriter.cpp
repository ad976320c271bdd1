#include "audio/StereoAudioWriter.h"

#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::audio {
namespace {

/// A big file that is removed at once keeps the disk busy for seconds; in steps others get their turn.
constexpr std::uint64_t kRemovalStep = 64 << 20;

/// Waking a thread is by far the dearest part of taking a buffer, so captures leave that to the main loop, which looks
/// for new sound this often.
constexpr base::Duration kGatherInterval = std::chrono::milliseconds(100);

/// Should the main loop be held up, a source itself wakes the audio path after so much of its time; a gap counts.
constexpr base::Duration kWakeInterval = std::chrono::seconds(1);

/// Each step is work of its own on the queue, which may be on its way out.
void removeInSteps(base::Files& files, base::TaskQueue& queue, const std::filesystem::path& path) {
    queue.post([&files, &queue, path] {
        try {
            const auto file = files.open(path, base::FileAccess::update);
            if (const auto size = file->size(); size > kRemovalStep) {
                file->truncate(size - kRemovalStep);
                return removeInSteps(files, queue, path);
            }
        } catch (const base::FileError& error) {
            base::log("A finished temporary file stays: " + error.description());
        }
        files.removeIfPossible(path);
    });
}

std::string startLine(const std::filesystem::path& output, double rate, int bitrate, bool separate) {
    return base::filled(
        "Started - output: {0}, rate: {1}, bitrate: {2}, separate: {3}",
        {output.filename().string(), base::fixedNumber(rate, 1), std::to_string(bitrate), separate ? "true" : "false"});
}

}  // namespace

StereoAudioWriter::StereoAudioWriter(base::Runtime& runtime, base::Files& files, AudioConverterFactory& converters,
                                     AudioEncoderFactory& encoders, std::filesystem::path incompleteFolder)
    : runtime_(runtime),
      files_(files),
      converters_(converters),
      encoders_(encoders),
      incompleteFolder_(std::move(incompleteFolder)),
      syncQueue_(runtime.makeQueue("com.tessivox.stereo.sync", base::QueuePriority::utility)),
      encodeQueue_(runtime.makeQueue("com.tessivox.stereo.encode", base::QueuePriority::userInitiated)),
      writeQueue_(runtime.makeQueue("com.tessivox.stereo.write", base::QueuePriority::userInitiated)),
      enqueueQueue_(runtime.makeQueue("com.tessivox.stereo.convert", base::QueuePriority::userInteractive)),
      writeWake_(writeQueue_->source([this] { writeConverted(); })),
      enqueueWake_(enqueueQueue_->source([this] { convertArrived(); })) {}

StereoAudioWriter::~StereoAudioWriter() {
    if (session_) session_->stopSource().request_stop();
    // In the order of the audio path: what a queue still does may hand work to the next one.
    enqueueQueue_.reset();
    writeQueue_.reset();
    encodeQueue_.reset();
    syncQueue_.reset();
}

void StereoAudioWriter::start(const std::filesystem::path& outputURL, double sampleRate, bool saveSeparateTracks,
                              int audioBitrate) {
    const RecordingFiles names(incompleteFolder_, outputURL);
    const EncodingSettings settings{sampleRate, audioBitrate};
    const auto report = [weak = std::weak_ptr(self_), &loop = runtime_.scheduler()](const std::string& problem) {
        loop.post([weak, problem] {
            if (const auto self = weak.lock()) (*self)->onProblem.emit(problem);
        });
    };
    auto session = std::make_shared<RecordingSession>(files_, converters_, names, settings, saveSeparateTracks, report);
    session->setEncoder(
        std::make_shared<BackgroundEncoder>(files_, encoders_, *encodeQueue_, names, settings, saveSeparateTracks));
    session_ = session;
    wakeDue_.fill(base::HostTime::min());  // the first buffers show at once
    // Sound may have come before a queue has got that far, so each looks for it then.
    enqueueQueue_->post([this, session] {
        converting_ = session;
        convertArrived();
    });
    writeQueue_->post([this, session] {
        writing_ = session;
        writeConverted();
    });
    gathering_ = runtime_.scheduler().every(kGatherInterval, [this] { enqueueWake_->signal(); });
    requestSync(session);
    base::log(startLine(outputURL, sampleRate, audioBitrate, saveSeparateTracks));
}

void StereoAudioWriter::appendMicrophone(const AudioBuffer& buffer, base::HostTime time) noexcept {
    append(Source::microphone, buffer, time);
}

void StereoAudioWriter::appendSystem(const AudioBuffer& buffer, base::HostTime time) noexcept {
    append(Source::system, buffer, time);
}

void StereoAudioWriter::append(Source source, const AudioBuffer& buffer, base::HostTime time) noexcept {
    if (!session_) return;
    session_->append(source, buffer, time);
    if (isWakeDue(source, buffer, time)) enqueueWake_->signal();
}

bool StereoAudioWriter::isWakeDue(Source source, const AudioBuffer& buffer, base::HostTime time) noexcept {
    auto& due = wakeDue_[static_cast<std::size_t>(source)];
    const auto end = time + buffer.duration();
    if (end < due) return false;
    const auto since = due == base::HostTime::min() ? time : due;
    due = since + ((end - since) / kWakeInterval + 1) * kWakeInterval;
    return true;
}

void StereoAudioWriter::convertArrived() {
    if (converting_ && converting_->convert()) writeWake_->signal();
}

void StereoAudioWriter::writeConverted() {
    if (!writing_) return;
    if (writing_->write()) requestSync(writing_);
    if (writing_->takeBlocked()) enqueueWake_->signal();
}

void StereoAudioWriter::requestSync(const std::shared_ptr<RecordingSession>& session) {
    if (isSyncing_.exchange(true)) return;
    syncQueue_->post([this, session] {
        isSyncing_ = false;
        session->sync();
    });
}

void StereoAudioWriter::pause() {
    if (session_) session_->pause(runtime_.scheduler().now());
}

void StereoAudioWriter::resume() {
    if (!session_) return;
    session_->resume(runtime_.scheduler().now());
    enqueueQueue_->post([session = session_] { session->resetConverters(); });
}

base::Task<void> StereoAudioWriter::flush() {
    const auto session = session_;
    if (!session) co_return;
    const auto convert = [this] { convertArrived(); };
    co_await enqueueQueue_->run(convert);
    const auto write = [this] { writeConverted(); };
    co_await writeQueue_->run(write);
    const auto sync = [session] { session->sync(); };
    co_await syncQueue_->run(sync);
}

base::Task<RecordingStopOutcome> StereoAudioWriter::stop() {
    const auto session = session_;
    if (!session) co_return Empty{};
    base::log(base::filled("Stopping - mic: {0} buffers, system: {1} buffers",
                           {std::to_string(session->bufferCount(Source::microphone)),
                            std::to_string(session->bufferCount(Source::system))}));
    const auto frames = co_await closeSession();
    const auto finishing = [this, session, frames] { return frames >= 1 ? finish(*session) : discard(*session); };
    auto outcome = co_await encodeQueue_->run(finishing);
    session_.reset();
    encodingProgress.set(0);
    co_return outcome;
}

base::Task<void> StereoAudioWriter::abandon() {
    const auto session = session_;
    if (!session) co_return;
    co_await closeSession();
    const auto discarding = [session] { return discard(*session); };
    co_await encodeQueue_->run(discarding);
    session_.reset();
}

base::Task<std::int64_t> StereoAudioWriter::closeSession() {
    // What did not fit behind a slow disk the first time is converted once that has caught up.
    gathering_.reset();
    const auto convertRest = [this] {
        converting_->convert();
        return converting_->isWaiting();
    };
    const auto writeRest = [this] { writing_->write(); };
    for (bool isWaiting = true; isWaiting;) {
        isWaiting = co_await enqueueQueue_->run(convertRest);
        co_await writeQueue_->run(writeRest);
    }
    const auto forget = [this] { converting_.reset(); };
    co_await enqueueQueue_->run(forget);
    const auto close = [this] { return std::exchange(writing_, nullptr)->close(); };
    co_return co_await writeQueue_->run(close);
}

RecordingStopOutcome StereoAudioWriter::discard(RecordingSession& session) {
    session.encoder()->finish(0);
    session.temporary().remove();
    return Empty{};
}

RecordingStopOutcome StereoAudioWriter::finish(RecordingSession& session) {
    const auto progress = [weak = std::weak_ptr(self_), &loop = runtime_.scheduler()](double share) {
        loop.post([weak, share] {
            if (const auto self = weak.lock()) (*self)->encodingProgress.set(share);
        });
    };
    const auto recording = session.finished();
    // The sync queue has nothing to sync now, and outlives this one.
    const EncodingTools tools{files_, encoders_, {syncQueue_.get()}};
    RecordingFinisher finisher(tools, recording);
    auto outcome =
        finisher.run(session.encoder()->finish(recording.frames), progress, session.stopSource().get_token());
    for (const auto& path : finisher.discarded()) removeInSteps(files_, *syncQueue_, path);
    return outcome;
}

}  // namespace tessivox::audio
