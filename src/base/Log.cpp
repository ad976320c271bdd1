#include "base/Log.h"

#include <atomic>
#include <mutex>
#include <utility>

namespace tessivox::base {
namespace {

std::mutex sinkMutex;
LogSink currentSink;
std::atomic<bool> logging = false;

}  // namespace

void setLogSink(LogSink sink) {
    const std::lock_guard guard(sinkMutex);
    logging = sink != nullptr;
    currentSink = std::move(sink);
}

bool isLogging() noexcept { return logging.load(std::memory_order_relaxed); }

void log(std::string_view line) {
    if (!isLogging()) return;
    const std::lock_guard guard(sinkMutex);
    if (currentSink) currentSink(line);
}

}  // namespace tessivox::base
