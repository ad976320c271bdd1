#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "audio/CafFile.h"
#include "audio/RecordingRecovery.h"
#include "audio/StereoAudioWriter.h"
#include "support/CrashingFiles.h"
#include "support/FakeEncoder.h"
#include "support/ManualRuntime.h"

namespace tessivox::audio {
namespace {

using namespace std::chrono_literals;
using testing::CrashingFiles;
using testing::FakeEncoder;
using Fault = CrashingFiles::Fault;
using Unsynced = CrashingFiles::Unsynced;

// A low rate keeps the thousands of recordings here small: what matters are operations, not samples.
constexpr std::size_t kRate = 1200;
constexpr std::size_t kBuffer = kRate / 10;
constexpr std::size_t kFrames = 3 * kRate + kRate / 2;

const std::filesystem::path kData = "/home/data";
const std::filesystem::path kIncomplete = kData / "Incomplete";
const std::filesystem::path kRecordings = "/home/recordings";
const std::filesystem::path kOutput = kRecordings / "talk.m4a";

/// The samples of a frame tell which one it is, so that one that is lost or out of place shows.
float left(std::size_t frame) { return static_cast<float>(frame + 1); }
float right(std::size_t frame) { return -static_cast<float>(frame + 1); }

/// How many of the recording's frames are there; a frame must be right or silent.
std::size_t framesThere(const std::vector<float>& samples) {
    std::size_t count = 0;
    for (std::size_t frame = 0; 2 * frame + 1 < samples.size(); ++frame) {
        const auto first = samples[2 * frame], second = samples[2 * frame + 1];
        if (first == left(frame) && second == right(frame)) {
            ++count;
        } else {
            EXPECT_TRUE(first == 0 && second == 0) << "frame " << frame << " holds another's samples";
        }
    }
    return count;
}

/// One recording of three and a half seconds from both sources on a disk with faults.
struct Recording {
    CrashingFiles disk;
    testing::ManualRuntime time;
    testing::FakeConverter converters;
    FakeEncoder encoders;
    std::optional<StereoAudioWriter> writer;
    base::Subscription listening;
    std::vector<std::string> problems;
    std::optional<RecordingStopOutcome> outcome;  ///< absent if it did not start
    std::uint64_t firstFault = std::numeric_limits<std::uint64_t>::max();
    std::size_t settled = 0;  ///< frames that were on the disk before the first fault

    explicit Recording(bool separateTracks, const std::function<void(Recording&)>& prepare = {}) {
        disk.put(kRecordings / "earlier.m4a", "");
        disk.put(kData / "settings", "");
        if (prepare) prepare(*this);
        writer.emplace(time, disk, converters, encoders, kIncomplete);
        listening = writer->onProblem.observe([this](const std::string& problem) { problems.push_back(problem); });
        run(separateTracks);
    }

    const Saved* saved() const { return outcome ? std::get_if<Saved>(&*outcome) : nullptr; }
    const ConversionFailed* failed() const { return outcome ? std::get_if<ConversionFailed>(&*outcome) : nullptr; }

    /// Interleaved samples of a CAF; absent if there is none that opens.
    std::optional<std::vector<float>> caf(const std::filesystem::path& path) {
        try {
            CafReader reader(disk.open(path, base::FileAccess::read));
            std::vector<float> samples(2 * reader.frames());
            reader.read(0, samples);
            return samples;
        } catch (const base::Error&) {
            return std::nullopt;
        }
    }
    std::optional<std::vector<float>> rawAudio() {
        if (auto samples = caf(kIncomplete / "stereo_talk.caf")) return samples;
        return caf(kRecordings / "talk.caf");
    }
    std::vector<std::string> leftovers(const std::filesystem::path& folder) {
        std::vector<std::string> names;
        if (!disk.exists(folder)) return names;
        for (const auto& name : disk.list(folder)) {
            if (name.string().find("talk") != std::string::npos) names.push_back(name.string());
        }
        return names;
    }

private:
    void run(bool separateTracks) {
        try {
            writer->start(kOutput, kRate, separateTracks, 128000);
        } catch (const base::FileError&) {
            return;
        }
        const auto zero = time.now();
        for (std::size_t frame = 0; frame < kFrames; frame += kBuffer) {
            feed(zero + base::fromSeconds(static_cast<double>(frame) / kRate), frame);
            if (disk.isHalted()) return;
            if (disk.operationCount() < firstFault) settled = (frame + kBuffer) / kRate * kRate;
        }
        outcome = testing::await(time, writer->stop(), 10s);
    }
    void feed(base::HostTime at, std::size_t first) {
        const auto count = std::min(kBuffer, kFrames - first);
        std::vector<float> samples(count);
        for (std::size_t index = 0; index < count; ++index) samples[index] = left(first + index);
        writer->appendMicrophone({{kRate, 1}, samples}, at);
        for (std::size_t index = 0; index < count; ++index) samples[index] = right(first + index);
        writer->appendSystem({{kRate, 1}, samples}, at);
        time.advance(100ms);
    }
};

std::uint64_t operationsOf(bool separateTracks) { return Recording(separateTracks).disk.operationCount(); }

/// The recording's frames are all there, or the user knows how many are not, or at least that some are not.
void judge(Recording& recording) {
    EXPECT_LE(recording.problems.size(), 1U);
    const bool wasTold = !recording.problems.empty();
    if (!recording.outcome) {
        EXPECT_FALSE(wasTold) << "what start() throws is not told twice";
    } else if (const auto* saved = recording.saved()) {
        const auto samples = FakeEncoder::samplesOf(recording.disk, saved->url);
        const auto missing = static_cast<double>(kFrames - framesThere(samples)) / kRate;
        EXPECT_NEAR(saved->missingSeconds, missing, 1e-6);
        EXPECT_TRUE(missing == 0 || wasTold);
    } else {
        const auto* failed = recording.failed();
        ASSERT_TRUE(failed) << "a recording with sound was called empty";
        const auto samples = recording.caf(failed->rescuedPCM.value_or(kIncomplete / "stereo_talk.caf"));
        ASSERT_TRUE(samples) << "the raw audio is not where it is said to be";
        EXPECT_TRUE(framesThere(*samples) == kFrames || wasTold);
    }
}

/// The next launch; how many recordings it brings back.
std::size_t recover(Recording& recording) {
    return recoverIncompleteFiles({recording.disk, recording.encoders, {}}, kIncomplete, kRecordings, {}).size();
}

/// There is one recording with so many frames at least, or none if that is 0, and nothing else but whole separate
/// tracks.
void judgeAfterRecovery(Recording& recording, std::size_t frames) {
    EXPECT_TRUE(recording.leftovers(kIncomplete).empty());
    const bool isThere = recording.disk.exists(kOutput);
    EXPECT_TRUE(isThere || frames == 0) << "neither file is left";
    if (isThere) {
        EXPECT_GE(framesThere(FakeEncoder::samplesOf(recording.disk, kOutput)), frames);
    }
    for (const auto& name : recording.leftovers(kRecordings)) {
        EXPECT_TRUE(name == "talk.m4a" || name == "talk_mic.m4a" || name == "talk_system.m4a") << name;
        FakeEncoder::samplesOf(recording.disk, kRecordings / name);  // throws if it is not whole
    }
}

/// The user gives the recording another name, and then the power fails: it does not come back under the old one.
void judgeAfterRenaming(Recording& recording, Unsynced unsynced) {
    if (!recording.disk.exists(kOutput)) return;
    recording.disk.move(kOutput, kRecordings / "renamed.m4a");
    recording.disk.syncFolder(kRecordings);
    recording.disk.crash(unsynced);
    EXPECT_EQ(recover(recording), 0U);
    EXPECT_FALSE(recording.disk.exists(kOutput));
    EXPECT_TRUE(recording.leftovers(kIncomplete).empty());
}

std::string described(std::uint64_t n, Fault fault, bool separateTracks) {
    const auto name = fault == Fault::noSpace ? "no space" : fault == Fault::ioError ? "I/O error" : "short write";
    return std::string(name) + " at operation " + std::to_string(n) + (separateTracks ? ", separate tracks" : "");
}

/// Carries a check out for each way in which a recording can be hit.
void forEachFault(const std::function<void(std::uint64_t n, Fault fault, bool separateTracks)>& check) {
    for (const bool separateTracks : {false, true}) {
        const auto count = operationsOf(separateTracks);
        for (const auto fault : {Fault::noSpace, Fault::ioError, Fault::shortWrite}) {
            for (std::uint64_t n = 1; n <= count && !::testing::Test::HasFailure(); ++n) {
                SCOPED_TRACE(described(n, fault, separateTracks));
                check(n, fault, separateTracks);
            }
        }
    }
}

TEST(RecordingFaultTest, WithoutFaultsEverythingIsSavedAndNothingElseStays) {
    Recording recording(true);
    ASSERT_TRUE(recording.saved());
    judge(recording);
    EXPECT_TRUE(recording.problems.empty());
    EXPECT_EQ(recording.leftovers(kRecordings).size(), 3U);
    EXPECT_TRUE(recording.leftovers(kIncomplete).empty());
    EXPECT_GT(recording.disk.operationCount(), 30U);
}

TEST(RecordingFaultTest, AnOperationThatFailsOnceLosesAtMostASecondAndThatIsTold) {
    forEachFault([](std::uint64_t n, Fault fault, bool separateTracks) {
        Recording recording(separateTracks, [&](Recording& self) { self.disk.failAt(n, fault); });
        judge(recording);
        if (!recording.outcome) {
            EXPECT_TRUE(recording.leftovers(kIncomplete).empty());
            EXPECT_TRUE(recording.leftovers(kRecordings).empty());
        } else if (!recording.saved()) {
            const auto samples = recording.rawAudio();
            EXPECT_GE(framesThere(samples.value_or(std::vector<float>())), kFrames - kRate);
        } else {
            EXPECT_EQ(recording.saved()->missingSeconds, 0) << "the encoder beside the recording had every frame";
        }
    });
}

TEST(RecordingFaultTest, AfterAnOperationFailedOnceACrashStillLeavesTheSoundOrTheUserHasBeenTold) {
    forEachFault([](std::uint64_t n, Fault fault, bool separateTracks) {
        Recording recording(separateTracks, [&](Recording& self) {
            self.disk.failAt(n, fault);
            self.encoders.refusedChannels = 2;  // so that the temporary file is all there is
        });
        if (!recording.outcome || !recording.problems.empty()) return;
        recording.writer.reset();
        recording.disk.crash(Unsynced::lost);
        const auto samples = recording.rawAudio();
        ASSERT_TRUE(samples) << "nothing is left";
        // The end alone may be missing, where it was the rescue's own sync that failed.
        EXPECT_GE(framesThere(*samples), kFrames - kRate);
    });
}

TEST(RecordingFaultTest, ADiskThatStaysFullOrBrokenIsNeverTakenForASavedRecording) {
    for (const auto& folder : {std::filesystem::path("/"), kData, kRecordings}) {
        forEachFault([&](std::uint64_t n, Fault fault, bool separateTracks) {
            SCOPED_TRACE("from there on below " + folder.string());
            Recording recording(separateTracks, [&](Recording& self) {
                self.firstFault = n;
                self.disk.failFrom(n, fault, folder);
            });
            judge(recording);
            if (recording.failed()) {
                const auto samples = recording.rawAudio();
                EXPECT_GE(framesThere(samples.value_or(std::vector<float>())), recording.settled);
            }
            if (fault == Fault::ioError) return;  // nothing can be tidied up either
            if (!recording.outcome) {
                EXPECT_TRUE(recording.leftovers(kIncomplete).empty());
                EXPECT_TRUE(recording.leftovers(kRecordings).empty());
            }
            for (const auto& name : recording.leftovers(kRecordings)) EXPECT_NE(name.front(), '.') << name;
        });
    }
}

TEST(RecordingFaultTest, AfterAPowerCutAtAnyOperationTheNextLaunchLeavesOneRecordingWithAllThatHadBeenSynced) {
    for (const bool separateTracks : {false, true}) {
        const auto count = operationsOf(separateTracks);
        for (const auto unsynced : {Unsynced::lost, Unsynced::prefix, Unsynced::zeros, Unsynced::kept}) {
            for (std::uint64_t n = 1; n <= count + 1 && !HasFailure(); ++n) {
                SCOPED_TRACE("at operation " + std::to_string(n) + ", kind " +
                             std::to_string(static_cast<int>(unsynced)) + (separateTracks ? ", separate tracks" : ""));
                Recording recording(separateTracks, [&](Recording& self) { self.disk.haltAt(n); });
                recording.writer.reset();
                recording.disk.crash(unsynced, n);
                const bool isSaved = recording.disk.exists(kOutput);
                EXPECT_TRUE(isSaved || n <= count) << "what was saved is gone";
                const auto recovered = recover(recording);
                EXPECT_EQ(recovered, !isSaved && recording.disk.exists(kOutput) ? 1U : 0U);
                judgeAfterRecovery(recording, isSaved ? kFrames : recording.settled);
                EXPECT_EQ(recover(recording), 0U);
                judgeAfterRecovery(recording, isSaved ? kFrames : recording.settled);
                judgeAfterRenaming(recording, unsynced);
            }
        }
    }
}

TEST(RecordingFaultTest, AfterAPowerCutARecordingToAnotherFolderIsThereOrComesBackAndLeavesNothingHiddenThere) {
    const auto count = operationsOf(true);
    for (const auto unsynced : {Unsynced::lost, Unsynced::prefix, Unsynced::zeros, Unsynced::kept}) {
        for (std::uint64_t n = 1; n <= count + 1 && !HasFailure(); ++n) {
            SCOPED_TRACE("at operation " + std::to_string(n) + ", kind " + std::to_string(static_cast<int>(unsynced)));
            Recording recording(true, [&](Recording& self) { self.disk.haltAt(n); });
            recording.writer.reset();
            recording.disk.crash(unsynced, n);
            const std::size_t saved = recording.disk.exists(kOutput) ? 1 : 0;
            const EncodingTools tools{recording.disk, recording.encoders, {}};
            const auto recovered = recoverIncompleteFiles(tools, kIncomplete, "/home/library", {}).size();
            EXPECT_LE(saved + recovered, 1U);
            EXPECT_TRUE(saved + recovered == 1 || recording.settled == 0);
            EXPECT_TRUE(recording.leftovers(kIncomplete).empty());
            for (const auto& name : recording.leftovers(kRecordings)) EXPECT_NE(name.front(), '.') << name;
        }
    }
}

TEST(RecordingFaultTest, ASavedRecordingThatIsRenamedAtOnceDoesNotComeBackAfterAPowerCut) {
    for (const bool separateTracks : {false, true}) {
        for (const auto unsynced : {Unsynced::lost, Unsynced::prefix, Unsynced::zeros, Unsynced::kept}) {
            Recording recording(separateTracks);
            ASSERT_TRUE(recording.saved());
            recording.writer.reset();
            judgeAfterRenaming(recording, unsynced);
        }
    }
}

TEST(RecordingFaultTest, APowerCutWhileRawAudioIsRescuedLosesNothingThatHadBeenSynced) {
    const auto refuse = [](Recording& self) { self.encoders.refusedChannels = 2; };
    const auto count = Recording(false, refuse).disk.operationCount();
    // Without arbitrary parts: file systems carry out a move from folder to folder as a whole or not at all.
    for (const auto unsynced : {Unsynced::lost, Unsynced::zeros, Unsynced::kept}) {
        for (std::uint64_t n = 1; n <= count + 1 && !HasFailure(); ++n) {
            SCOPED_TRACE("at operation " + std::to_string(n));
            Recording recording(false, [&](Recording& self) {
                refuse(self);
                self.disk.haltAt(n);
            });
            recording.writer.reset();
            recording.disk.crash(unsynced, n);
            EXPECT_FALSE(recording.disk.exists(kOutput));
            if (recording.settled == 0) continue;
            const auto samples = recording.rawAudio();
            ASSERT_TRUE(samples) << "nothing is left";
            EXPECT_GE(framesThere(*samples), n > count ? kFrames : recording.settled);
        }
    }
}

}  // namespace
}  // namespace tessivox::audio
