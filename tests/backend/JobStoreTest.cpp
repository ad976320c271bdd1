#include "backend/jobs/JobStore.h"

#include <gtest/gtest.h>

#include <cstring>

#include "backend/http/HttpError.h"
#include "backend/jobs/Upload.h"
#include "support/CrashingFiles.h"

namespace tessivox::testing {
namespace {

using namespace backend;
using Fault = CrashingFiles::Fault;

class JobStoreTest : public ::testing::Test {
protected:
    void open() {
        store.emplace(
            files, "/state", limits, [this] { return time; }, random);
    }
    /// The power fails, and the server starts again.
    void crash(CrashingFiles::Unsynced unsynced = CrashingFiles::Unsynced::lost) {
        store.reset();
        files.crash(unsynced);
        files.heal();
        open();
    }
    std::string submit(const std::string& bytes = "sound") {
        auto upload = store->beginUpload(bytes.size());
        upload->append(bytes);
        return store->submit(std::move(upload));
    }
    std::optional<JobState> state(const std::string& id) const {
        const auto job = store->find(id);
        return job ? std::optional(job->state) : std::nullopt;
    }
    std::size_t count(const char* folder) const { return files.list(std::string("/state/") + folder).size(); }

    CrashingFiles files;
    Limits limits;
    base::WallTime time{std::chrono::hours(24 * 365 * 50)};
    std::uint32_t lastID = 0;
    base::RandomBytes random = [this](std::span<std::byte> bytes) {
        ++lastID;
        std::memcpy(bytes.data(), &lastID, sizeof lastID);
    };
    std::optional<JobStore> store;
};

TEST_F(JobStoreTest, AJobThatWasToldOfSurvivesAPowerFailureWithItsUpload) {
    open();
    const auto id = submit("the whole sound");
    crash();
    EXPECT_EQ(state(id), JobState::queued);
    EXPECT_EQ(files.readAll(store->uploadPath(id), 100), "the whole sound");
}

TEST_F(JobStoreTest, AResultThatWasToldOfSurvivesAPowerFailure) {
    open();
    const auto id = submit();
    store->begin();
    store->complete(id, {"[00:00] Speaker A: Hello.", 3, "fake", "A title", std::nullopt});
    crash();
    EXPECT_EQ(state(id), JobState::completed);
    EXPECT_EQ(store->result(id).text, "[00:00] Speaker A: Hello.");
    EXPECT_EQ(store->result(id).title, "A title");
    EXPECT_EQ(store->transcribed(), 1);
    EXPECT_EQ(count("uploads"), 0U);
}

TEST_F(JobStoreTest, WhereverThePowerFailsAJobIsWholeOrUnknown) {
    for (std::uint64_t n = 1; n < 60; ++n) {
        files.crash();
        files.heal();
        open();
        const auto first = files.operationCount();
        files.haltAt(first + n);
        std::string id;
        try {
            id = submit("whole");
            store->begin();
            store->complete(id, {"text", 1, "fake", {}, {}});
        } catch (const base::Error&) {
        }
        const bool isToldCompleted = !files.isHalted();
        crash();
        if (!id.empty()) {
            const auto job = store->find(id);
            ASSERT_TRUE(job) << n;
            if (isToldCompleted) {
                EXPECT_EQ(job->state, JobState::completed);
            }
            if (job->isOpen()) {
                EXPECT_EQ(files.readAll(store->uploadPath(id), 100), "whole") << n;
            }
            if (job->state == JobState::completed) {
                EXPECT_EQ(store->result(id).text, "text") << n;
            }
        }
        if (isToldCompleted) return;
    }
    FAIL() << "a job takes more operations than that";
}

TEST_F(JobStoreTest, AFullDiskIsToldAndLeavesNothing) {
    open();
    files.setFreeSpace(JobStore::kReserve);
    EXPECT_THROW(submit(), HttpError);
    files.setFreeSpace(std::uint64_t{1} << 40);
    auto upload = store->beginUpload(std::nullopt);
    files.failFrom(files.operationCount() + 1, Fault::noSpace, "/state/uploads");
    try {
        upload->append(std::string(300000, 'x'));
        ADD_FAILURE() << "the disk is full";
    } catch (const HttpError& error) {
        EXPECT_EQ(error.status(), 507);
    }
    files.heal();
    upload.reset();
    EXPECT_EQ(count("uploads"), 0U);
}

TEST_F(JobStoreTest, AJobThatCannotBeWrittenDownIsNoJob) {
    open();
    auto upload = store->beginUpload(5);
    upload->append(std::string("sound"));
    // After the upload's writing, its sync and its folder's.
    files.failFrom(files.operationCount() + 4, Fault::noSpace);
    EXPECT_THROW(store->submit(std::move(upload)), base::FileError);
    EXPECT_FALSE(store->hasWork());
    EXPECT_EQ(count("uploads"), 0U);
}

TEST_F(JobStoreTest, WorksInTheOrderOfSubmission) {
    open();
    const auto first = submit();
    const auto second = submit();
    crash();
    EXPECT_EQ(store->begin().value_or(Job()).id, first);
    EXPECT_EQ(store->begin().value_or(Job()).id, second);
    EXPECT_FALSE(store->begin());
}

TEST_F(JobStoreTest, BoundsWhatAllUploadsTogetherTake) {
    limits.queuedBytes = 1000000;
    open();
    submit(std::string(600000, 'x'));
    EXPECT_THROW(store->beginUpload(600000), HttpError);
    auto unknown = store->beginUpload(std::nullopt);
    EXPECT_THROW(unknown->append(std::string(600000, 'x')), HttpError);
    unknown.reset();
    EXPECT_NO_THROW(submit(std::string(300000, 'x')));
}

TEST_F(JobStoreTest, ErasesResultsAfterADayAlsoIfTheClockWasSetBack) {
    open();
    const auto id = submit();
    store->begin();
    store->fail(id, "It is no sound.");
    time -= std::chrono::hours(24 * 365);
    crash();
    time += std::chrono::hours(23);
    store->eraseExpired();
    EXPECT_EQ(state(id), JobState::failed);
    EXPECT_EQ(store->find(id).value_or(Job()).error, "It is no sound.");
    time += std::chrono::hours(2);
    store->eraseExpired();
    EXPECT_FALSE(store->find(id));
}

}  // namespace
}  // namespace tessivox::testing
