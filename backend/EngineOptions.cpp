#include "backend/EngineOptions.h"

#include <nlohmann/json.hpp>

namespace tessivox::backend {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FakeOptions, text, seconds, decodeSeconds, length, crashes, hangs)

void to_json(nlohmann::json& json, const EngineOptions& options) {
    json = {{"engine", options.engine},
            {"command", options.command},
            {"openaiUrl", options.openaiUrl},
            {"openaiModel", options.openaiModel},
            {"openaiLanguage", options.openaiLanguage},
            {"openaiFormat", options.openaiFormat},
            {"chatUrl", options.chatUrl},
            {"chatModel", options.chatModel},
            {"timeFactor", options.timeFactor},
            {"fake", options.fake}};
}

void from_json(const nlohmann::json& json, EngineOptions& options) {
    json.at("engine").get_to(options.engine);
    json.at("command").get_to(options.command);
    json.at("openaiUrl").get_to(options.openaiUrl);
    json.at("openaiModel").get_to(options.openaiModel);
    json.at("openaiLanguage").get_to(options.openaiLanguage);
    json.at("openaiFormat").get_to(options.openaiFormat);
    json.at("chatUrl").get_to(options.chatUrl);
    json.at("chatModel").get_to(options.chatModel);
    json.at("timeFactor").get_to(options.timeFactor);
    json.at("fake").get_to(options.fake);
}

}  // namespace tessivox::backend
