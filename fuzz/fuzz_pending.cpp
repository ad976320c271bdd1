#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "transcription/PendingDocument.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using tessivox::transcription::PendingDocument;
    const auto tasks = PendingDocument::parsed({reinterpret_cast<const char*>(data), size});
    if (!tasks) return 0;
    for (const auto& [path, task] : *tasks) {
        if (path.empty() || path != task.audioPath) std::abort();
    }
    // What it took it writes so that it takes it again, every byte of a path included.
    const auto again = PendingDocument::parsed(PendingDocument::text(*tasks));
    if (!again || again->size() != tasks->size()) std::abort();
    for (const auto& [path, task] : *tasks) {
        const auto found = again->find(path);
        if (found == again->end() || found->second.taskId != task.taskId) std::abort();
    }
    return 0;
}
