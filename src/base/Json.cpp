#include "base/Json.h"

#include <nlohmann/json.hpp>

namespace tessivox::base {

nlohmann::json parsedJson(std::string_view text, int maxDepth) {
    using nlohmann::json;
    bool isTooDeep = false;
    const auto withinDepth = [&](int depth, json::parse_event_t, json&) {
        isTooDeep = isTooDeep || depth > maxDepth;
        return !isTooDeep;
    };
    auto value = json::parse(text, withinDepth, /*allow_exceptions=*/false);
    return isTooDeep ? json(json::value_t::discarded) : value;
}

}  // namespace tessivox::base
