#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace tessivox::base {

/// Reads JSON (RFC 8259) that others may have written. A discarded value, which is neither object nor array, if the
/// text is damaged or nests deeper than `maxDepth`: what only nests would cost memory, and a writer's stack, for
/// nothing.
nlohmann::json parsedJson(std::string_view text, int maxDepth);

}  // namespace tessivox::base
