#include "backend/jobs/Upload.h"

#include <cerrno>

#include "backend/http/HttpError.h"

namespace tessivox::backend {
namespace {

[[noreturn]] void refuse(const base::FileError& error) {
    if (error.code() != ENOSPC && error.code() != EDQUOT) throw error;
    throw HttpError(507, "disk_full", "The server's disk is full; free some space and try again.");
}

}  // namespace

Upload::Upload(JobStore& store, std::string id) : store_(store), id_(std::move(id)) {
    waiting_.reserve(kPiece);
    file_ = store_.files_.create(store_.uploadPath(id_));
}

Upload::~Upload() {
    store_.unreserve(reserved_);
    if (!isKept_) store_.files_.removeIfPossible(store_.uploadPath(id_));
}

void Upload::append(std::span<const char> bytes) {
    if (size_ + bytes.size() > store_.limits_.uploadBytes) {
        throw HttpError(413, "too_large", "The recording is larger than the server takes; see --max-upload.");
    }
    size_ += bytes.size();
    waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
    if (waiting_.size() >= kPiece) flush();
}

void Upload::finish() {
    flush();
    try {
        file_->sync();
        store_.files_.syncFolder(store_.uploadPath(id_).parent_path());
    } catch (const base::FileError& error) {
        refuse(error);
    }
    file_.reset();
}

void Upload::flush() {
    store_.reserve(waiting_.size());
    reserved_ += waiting_.size();
    try {
        file_->append(std::as_bytes(std::span(waiting_)));
    } catch (const base::FileError& error) {
        refuse(error);
    }
    waiting_.clear();
}

}  // namespace tessivox::backend
