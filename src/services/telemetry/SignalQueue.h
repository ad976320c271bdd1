#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/ports/Files.h"

namespace tessivox::telemetry {

/// Signals that wait to be sent, one line each, in a file that outlives the process. Bounded: the oldest go first. A
/// process that finds the file in use by another keeps its signals in memory only; one that cannot write it tries again
/// with the next change. One thread.
class SignalQueue {
public:
    static constexpr std::size_t kMostSignals = 1000;
    static constexpr std::size_t kMostBytes = std::size_t{1} << 20;

    /// Takes what an earlier process left. Lines that were not written to their end are dropped.
    SignalQueue(base::Files& files, std::filesystem::path file);

    struct Batch {
        std::vector<std::string> lines;
        std::uint64_t last = 0;  ///< for removeThrough()
    };

    bool isEmpty() const { return entries_.empty(); }
    /// The line has no line feed. One of more than a tenth of kMostBytes is dropped.
    void add(std::string line);
    /// The oldest signals.
    Batch front(std::size_t most) const;
    /// Removes the signals of a batch; those that have been dropped meanwhile are no matter.
    void removeThrough(std::uint64_t last);
    void clear();

private:
    struct Entry {
        std::uint64_t number;
        std::string line;
    };

    base::Files& files_;
    const std::filesystem::path path_;
    std::unique_ptr<base::File> lock_;  ///< absent: in memory only
    std::unique_ptr<base::File> file_;  ///< absent though locked: it is not up to date
    std::deque<Entry> entries_;
    std::size_t bytes_ = 0;
    std::uint64_t lastNumber_ = 0;

    void lock();
    void load();
    void keep(std::string line);
    void dropFirst();
    bool shrink();
    void save();
    void rewrite();
    void openFile();
};

}  // namespace tessivox::telemetry
