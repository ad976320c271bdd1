#pragma once

#include <mutex>
#include <string_view>

#include "base/ports/Files.h"

namespace tessivox::backend {

/// Keeps what people write to whoever runs the server, one JSON object a line, in a file that does not grow for ever.
/// Any thread.
class MessageLog {
public:
    static constexpr std::uint64_t kLargest = 1 << 20;  ///< bytes; then it is moved to the name with ".old"

    MessageLog(base::Files& files, base::Files::Path file) : files_(files), file_(std::move(file)) {}

    /// Throws base::FileError.
    void append(std::string_view line);

private:
    base::Files& files_;
    const base::Files::Path file_;
    std::mutex mutex_;
};

}  // namespace tessivox::backend
