#include "services/telemetry/SignalQueue.h"

#include <span>
#include <string_view>
#include <utility>

#include "base/Log.h"

namespace tessivox::telemetry {
namespace {

// A file that a crash left before it was shortened is a little longer than the bound.
constexpr std::size_t kMostBytesRead = 4 * SignalQueue::kMostBytes;

void report(const base::FileError& error) {
    base::log("[Analytics] The queue of signals could not be written. " + error.description());
}

}  // namespace

SignalQueue::SignalQueue(base::Files& files, std::filesystem::path file) : files_(files), path_(std::move(file)) {
    try {
        files_.makeFolders(path_.parent_path());
        lock();
        if (!lock_) return;
        load();
        openFile();
    } catch (const base::FileError& error) {
        report(error);
    }
}

/// On a file beside the queue, since the queue's own is replaced.
void SignalQueue::lock() {
    const std::filesystem::path path = path_.native() + ".lock";
    std::unique_ptr<base::File> file;
    try {
        file = files_.create(path);
    } catch (const base::FileError&) {
        file = files_.open(path, base::FileAccess::update);
    }
    if (file->tryLock(path)) lock_ = std::move(file);
}

void SignalQueue::load() {
    if (!files_.exists(path_)) return;
    std::string contents;
    try {
        contents = files_.readAll(path_, kMostBytesRead);
    } catch (const base::FileError&) {
        files_.removeIfPossible(path_);  // nothing that this program wrote
    }
    const std::string_view text = contents;
    std::size_t begin = 0;
    for (auto end = text.find('\n'); end != text.npos; begin = end + 1, end = text.find('\n', begin)) {
        const auto line = text.substr(begin, end - begin);
        if (line.starts_with('{') && line.ends_with('}')) keep(std::string(line));
    }
    if (shrink() || begin < text.size()) rewrite();
}

void SignalQueue::openFile() {
    if (files_.exists(path_)) {
        file_ = files_.open(path_, base::FileAccess::update);
    } else {
        file_ = files_.create(path_);
    }
}

void SignalQueue::keep(std::string line) {
    bytes_ += line.size() + 1;
    entries_.push_back({++lastNumber_, std::move(line)});
}

void SignalQueue::add(std::string line) {
    if (line.size() > kMostBytes / 10) return;
    keep(std::move(line));
    const bool isShorter = shrink();
    if (isShorter || !file_) return save();
    try {
        const auto whole = entries_.back().line + "\n";
        file_->append(std::as_bytes(std::span(whole)));
    } catch (const base::FileError& error) {
        report(error);
        file_.reset();
    }
}

SignalQueue::Batch SignalQueue::front(std::size_t most) const {
    Batch batch;
    for (std::size_t index = 0; index < entries_.size() && index < most; ++index) {
        batch.lines.push_back(entries_[index].line);
        batch.last = entries_[index].number;
    }
    return batch;
}

void SignalQueue::removeThrough(std::uint64_t last) {
    while (!entries_.empty() && entries_.front().number <= last) dropFirst();
    save();
}

void SignalQueue::clear() { removeThrough(lastNumber_); }

void SignalQueue::dropFirst() {
    bytes_ -= entries_.front().line.size() + 1;
    entries_.pop_front();
}

/// Makes room for many more at once, so that the file is rewritten seldom. True if anything went.
bool SignalQueue::shrink() {
    if (entries_.size() <= kMostSignals && bytes_ <= kMostBytes) return false;
    while (entries_.size() > kMostSignals * 9 / 10 || bytes_ > kMostBytes * 9 / 10) dropFirst();
    return true;
}

/// Brings the file up to date, also after an operation on it has failed.
void SignalQueue::save() {
    if (!lock_) return;
    try {
        rewrite();
    } catch (const base::FileError& error) {
        report(error);
        file_.reset();
        // What was dropped must not come back, and a full disk still lets a file go.
        if (entries_.empty()) files_.removeIfPossible(path_);
    }
}

/// Without a sync, which would hold up the main thread: a power failure may take signals, the end of the process none.
void SignalQueue::rewrite() {
    const std::filesystem::path beside = path_.native() + ".new";
    files_.removeIfPossible(beside);
    std::string contents;
    for (const auto& entry : entries_) contents += entry.line + "\n";
    auto file = files_.create(beside);
    file->append(std::as_bytes(std::span(contents)));
    files_.replace(beside, path_);
    file_ = std::move(file);
}

}  // namespace tessivox::telemetry
