#include "backend/api/MessageLog.h"

#include <span>
#include <string>

namespace tessivox::backend {

void MessageLog::append(std::string_view line) {
    const std::lock_guard lock(mutex_);
    const auto status = files_.status(file_);
    if (status && status->size + line.size() >= kLargest) {
        files_.replace(file_, base::Files::Path(file_) += ".old");
    }
    const auto file = files_.exists(file_) ? files_.open(file_, base::FileAccess::update) : files_.create(file_);
    const auto text = std::string(line) + "\n";
    file->append(std::as_bytes(std::span(text)));
}

}  // namespace tessivox::backend
