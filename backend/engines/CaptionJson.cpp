#include <nlohmann/json.hpp>

#include "backend/engines/Captions.h"
#include "backend/engines/EngineError.h"
#include "backend/engines/Utf8.h"
#include "base/Text.h"

namespace tessivox::backend {
namespace {

using Json = nlohmann::json;

constexpr int kDeepest = 16;
constexpr std::size_t kMostValues = 4'000'000;  // about 400 MB of memory at worst

/// Absent if the text is no JSON.
std::optional<Json> parsed(const std::string& text) {
    std::size_t values = 0;
    const auto bound = [&](int depth, Json::parse_event_t, Json&) {
        if (depth <= kDeepest && ++values <= kMostValues) return true;
        throw EngineError("The speech program returned JSON that is too large or too deep to read.");
    };
    try {
        return Json::parse(text, bound);
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

std::optional<double> number(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_number() ? std::optional(found->get<double>()) : std::nullopt;
}

std::string text(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) return {};
    if (found->is_number_integer()) return std::to_string(found->get<std::int64_t>());
    return found->is_string() ? found->get<std::string>() : std::string();
}

/// Seconds of an entry: "start" and "end", or whisper.cpp's "offsets" in milliseconds.
std::pair<double, double> timesOf(const Json& entry) {
    if (const auto offsets = entry.find("offsets"); offsets != entry.end() && offsets->is_object()) {
        const auto start = number(*offsets, "from").value_or(0) / 1000;
        return {start, number(*offsets, "to").value_or(start * 1000) / 1000};
    }
    const auto start = number(entry, "start").value_or(0);
    return {start, number(entry, "end").value_or(start)};
}

void addEntries(const Json& entries, Captions& captions) {
    for (const auto& entry : entries) {
        if (!entry.is_object()) continue;
        const auto [start, end] = timesOf(entry);
        captions.add(start, end, text(entry, "text"), text(entry, "speaker"));
    }
}

const Json* entriesOf(const Json& document) {
    if (document.is_array()) return &document;
    for (const auto* key : {"transcription", "segments"}) {
        const auto found = document.find(key);
        if (found != document.end() && found->is_array()) return &*found;
    }
    return nullptr;
}

}  // namespace

bool readCaptionJson(std::string_view json, Captions& captions) {
    // Programs that cut words into tokens also cut characters.
    const auto document = parsed(base::repairedUTF8(json));
    if (!document && json.starts_with('[')) return false;
    if (!document)
        throw EngineError("The speech program returned damaged JSON. Try its output as text or SRT instead.");
    const auto* entries = entriesOf(*document);
    const auto words = document->is_object() ? text(*document, "text") : std::string();
    if (entries != nullptr && (!entries->empty() || words.empty())) {
        addEntries(*entries, captions);
    } else if (document->is_object() && document->contains("text")) {
        captions.addUntimed(words);
    } else {
        throw EngineError(
            "The speech program returned JSON without \"segments\", \"transcription\" or \"text\". "
            "Try its output as text or SRT instead.");
    }
    return true;
}

}  // namespace tessivox::backend
