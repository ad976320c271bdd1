#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "backend/Options.h"
#include "backend/jobs/Job.h"
#include "base/SharedDocument.h"
#include "base/Units.h"
#include "base/Uuid.h"
#include "base/ports/Files.h"

namespace tessivox::backend {

class Upload;

/// What the server remembers: jobs.json with all jobs, and beside it the uploads, the sounds and the results that they
/// need, each only as long as it is needed. Whatever it tells of is on the disk. Any thread; one process at a time.
class JobStore {
public:
    using Path = base::Files::Path;
    using Clock = std::function<base::WallTime()>;
    static constexpr int kMostAttempts = 2;
    static constexpr std::int64_t kKept = 24 * 3600;  ///< seconds that results stay
    /// Disk space that no upload may take, in bytes.
    static constexpr std::uint64_t kReserve = std::uint64_t{64} << 20;

    /// Takes up where the one before it ended, however that was. Throws base::FileError if the folder cannot be used.
    JobStore(base::Files& files, Path folder, Limits limits, Clock clock, base::RandomBytes random);

    /// A place for an upload, of which the client may have said how long it is. Throws HttpError if there is none.
    std::unique_ptr<Upload> beginUpload(std::optional<std::uint64_t> length);
    /// Makes it a job, and gives its id. Throws HttpError and base::FileError.
    std::string submit(std::unique_ptr<Upload> upload);

    std::optional<Job> find(const std::string& id) const;
    /// Of a completed job. Throws base::FileError if it cannot be read.
    JobResult result(const std::string& id) const;

    /// The next job to be worked on, its new attempt counted. Throws base::FileError.
    std::optional<Job> begin();
    /// The four ways in which an attempt ends. None throws: what could not be saved now is done again after a restart.
    void complete(const std::string& id, const JobResult& result);
    void fail(const std::string& id, const std::string& sentence);
    void crash(const std::string& id, const std::string& sentence);  ///< fails only if it was the last attempt
    void release(const std::string& id);                             ///< as if it had not been begun

    /// Erases what has been kept for long enough.
    void eraseExpired();

    bool hasWork() const;
    /// Transcriptions so far.
    std::int64_t transcribed() const;
    std::int64_t now() const;
    Path uploadPath(const std::string& id) const { return folder_ / "uploads" / id; }
    Path soundPath(const std::string& id) const { return folder_ / "sounds" / id; }

private:
    friend class Upload;
    base::Files& files_;
    const Path folder_;
    const Limits limits_;
    const Clock clock_;
    const base::RandomBytes random_;
    struct State {
        std::map<std::string, Job> jobs;
        std::int64_t lastNumber = 0;
        std::int64_t transcribed = 0;
    };
    using Change = std::function<void(State&)>;
    std::mutex saving_;  ///< held by whoever changes the state; taken before mutex_
    mutable std::mutex mutex_;
    State state_;                       ///< as on the disk
    std::uint64_t uploadingBytes_ = 0;  ///< of uploads that are no jobs yet
    base::SharedDocument document_;

    Path resultPath(const std::string& id) const { return folder_ / "results" / id; }
    std::string newID() const;
    void load(State& state);
    void takeUp(State& state, Job job);
    void sweep();
    void sweepFolder(const char* name, const std::function<bool(const Job&)>& isNeeded);
    State snapshot() const;
    void save(const State& state);
    /// Shows the changed state once it is on the disk. Throws base::FileError, and nothing has changed.
    void change(const Change& change);
    /// Shows it even if it cannot be saved.
    void changeAnyway(const Change& change);
    /// Changes a job, and drops the files that it no longer needs.
    void finish(const std::string& id, const std::function<void(Job&, State&)>& change);
    void dropFiles(const Job& job);
    std::uint64_t keptBytes() const;
    void reserve(std::uint64_t bytes);
    void unreserve(std::uint64_t bytes);
};

}  // namespace tessivox::backend
