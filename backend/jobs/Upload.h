#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "backend/jobs/JobStore.h"

namespace tessivox::backend {

/// A file that is arriving. Its destruction removes it, unless it has become a job. One thread.
class Upload {
public:
    Upload(JobStore& store, std::string id);
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;
    ~Upload();

    const std::string& id() const { return id_; }
    std::uint64_t size() const { return size_; }
    /// Throws HttpError if it becomes too much, or the disk is full.
    void append(std::span<const char> bytes);
    /// Brings it to the disk. Throws HttpError if that is full.
    void finish();
    void keep() { isKept_ = true; }

private:
    static constexpr std::size_t kPiece = 256 * 1024;  ///< bytes that are written at once

    JobStore& store_;
    const std::string id_;
    std::unique_ptr<base::File> file_;
    std::vector<char> waiting_;
    std::uint64_t size_ = 0;
    std::uint64_t reserved_ = 0;  ///< of it, what the store has counted
    bool isKept_ = false;

    void flush();
};

}  // namespace tessivox::backend
