#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "base/Text.h"
#include "transcription/ServerJson.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tessivox::transcription;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto demandUTF8 = [](const std::optional<std::string>& value) {
        if (value && !tessivox::base::isUTF8(*value)) std::abort();
    };
    if (const auto usage = readUsage(text)) demandUTF8(usage->resetsAt);
    demandUTF8(readSubmit(text));
    if (const auto token = readDeviceToken(text); token && token->empty()) std::abort();
    if (const auto summary = readSummarize(text)) demandUTF8(summary->summary);
    if (const auto reason = readAPIError(text)) demandUTF8(reason->error);
    if (const auto task = readTaskStatus(text)) {
        for (const auto* value : {&task->text, &task->provider, &task->title, &task->gist, &task->error}) {
            demandUTF8(*value);
        }
        if (task->confidence && !std::isfinite(*task->confidence)) std::abort();
        // What came in can go out again.
        const auto back = writeTexts({{"task_id", task->taskId}, {"status", task->status}, {"text", task->text}});
        const auto again = readTaskStatus(back);
        if (!again || again->taskId != task->taskId || again->text != task->text) std::abort();
    }
    return 0;
}
