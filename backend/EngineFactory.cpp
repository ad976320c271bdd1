#include "backend/EngineFactory.h"

#include <cstdlib>
#include <string>

#include "backend/engines/CommandEngine.h"
#include "backend/engines/OpenAIEngine.h"
#include "backend/speech/PocketsphinxEngine.h"
#include "backend/summary/TranscriptSummarizer.h"
#include "backend/worker/FakeEngine.h"
#include "base/Error.h"

namespace tessivox::backend {
namespace {

std::string fromEnvironment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value ? value : "";
}

CommandSettings commandSettings(const EngineOptions& options, const std::filesystem::path& folder) {
    CommandSettings settings;
    settings.arguments = options.command;
    settings.folder = folder;
    settings.timePerSecond = options.timeFactor;
    return settings;
}

OpenAISettings openAISettings(const EngineOptions& options) {
    OpenAISettings settings;
    settings.url = options.openaiUrl;
    if (!options.openaiModel.empty()) settings.model = options.openaiModel;
    settings.language = options.openaiLanguage;
    if (!options.openaiFormat.empty()) settings.responseFormat = options.openaiFormat;
    settings.key = fromEnvironment(OpenAISettings::kKeyVariable);
    return settings;
}

ChatSettings chatSettings(const EngineOptions& options) {
    ChatSettings settings;
    settings.url = options.chatUrl;
    settings.model = options.chatModel;
    settings.key = fromEnvironment(ChatSettings::kKeyVariable);
    return settings;
}

}  // namespace

std::unique_ptr<Engine> makeEngine(const EngineOptions& options, const std::filesystem::path& folder) {
    if (options.engine == "pocketsphinx") return std::make_unique<PocketsphinxEngine>();
    if (options.engine == "command") return std::make_unique<CommandEngine>(commandSettings(options, folder));
    if (options.engine == "openai") return std::make_unique<OpenAIEngine>(openAISettings(options));
    if (options.engine == "fake") return std::make_unique<FakeEngine>(options.fake);
    throw base::Error("backend", 1,
                      "There is no engine \"" + options.engine + "\"; choose pocketsphinx, command or openai.");
}

std::unique_ptr<Summarizer> makeSummarizer(const EngineOptions& options) {
    if (options.chatUrl.empty()) return std::make_unique<TranscriptSummarizer>();
    return std::make_unique<TranscriptSummarizer>(chatSettings(options));
}

}  // namespace tessivox::backend
