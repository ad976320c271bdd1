#pragma once

#include <cstddef>
#include <functional>

namespace tessivox::backend {

/// Does one piece of work, by its number.
using Worker = std::function<void(std::size_t index)>;

/// Works through `count` pieces on all processors but one, at least one, in order of their numbers as threads get free.
/// Each thread makes a worker of its own. `onDone` is called after each piece, on any thread, one call at a time. If
/// anything throws, no further piece is begun and the first exception is thrown here once all threads have ended.
void workInParallel(std::size_t count, const std::function<Worker()>& makeWorker,
                    const std::function<void(std::size_t index)>& onDone);

}  // namespace tessivox::backend
