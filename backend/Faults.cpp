#include "backend/Faults.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace tessivox::backend {
namespace {

constexpr std::array<std::string_view, 9> kEndpoints{"usage",    "me",      "submit",   "status", "summarize",
                                                     "feedback", "message", "register", "consent"};

template <typename Number>
std::optional<Number> number(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

/// The text before the separator, which it loses together with it; all of it if there is none.
std::string_view takeUntil(std::string_view& text, char separator) {
    const auto part = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(text.size(), part.size() + 1));
    return part;
}

std::optional<Fault> slowFault(std::string_view seconds) {
    const auto value = number<double>(seconds);
    if (!value || !(*value >= 0 && *value <= 3600)) return std::nullopt;
    return Fault{Fault::Kind::slow, 0, std::chrono::milliseconds(static_cast<int>(*value * 1000))};
}

std::optional<Fault> parseFault(std::string_view text) {
    if (text == "cut") return Fault{Fault::Kind::cut, 0, {}};
    if (text == "malformed") return Fault{Fault::Kind::malformed, 0, {}};
    if (text == "none") return Fault{Fault::Kind::none, 0, {}};
    if (text.starts_with("slow=")) return slowFault(text.substr(5));
    const auto status = number<int>(text);
    if (!status || *status < 300 || *status > 599) return std::nullopt;
    return Fault{Fault::Kind::status, *status, {}};
}

std::optional<Faults::Rule> parseRule(std::string_view text) {
    const auto endpoint = takeUntil(text, ':');
    if (std::find(kEndpoints.begin(), kEndpoints.end(), endpoint) == kEndpoints.end()) return std::nullopt;
    const bool isCounted = text.find('*') != std::string_view::npos;
    const auto fault = parseFault(takeUntil(text, '*'));
    const auto count = isCounted ? number<int>(text) : 0;
    if (!fault || !count || (isCounted && *count < 1)) return std::nullopt;
    return Faults::Rule{std::string(endpoint), *fault, *count};
}

}  // namespace

std::optional<Faults::Rules> Faults::parse(std::string_view text) {
    Rules rules;
    while (!text.empty()) {
        const auto rule = parseRule(takeUntil(text, ','));
        if (!rule) return std::nullopt;
        rules.push_back(*rule);
    }
    if (rules.empty()) return std::nullopt;
    return rules;
}

void Faults::order(Rules rules) {
    const std::lock_guard lock(mutex_);
    rules_ = std::move(rules);
}

std::optional<Fault> Faults::next(std::string_view endpoint) {
    const std::lock_guard lock(mutex_);
    const auto rule = std::find_if(rules_.begin(), rules_.end(), [&](const Rule& r) { return r.endpoint == endpoint; });
    if (rule == rules_.end()) return std::nullopt;
    const auto fault = rule->fault;
    if (rule->count == 1) {
        rules_.erase(rule);
    } else if (rule->count > 1) {
        --rule->count;
    }
    if (fault.kind == Fault::Kind::none) return std::nullopt;
    return fault;
}

}  // namespace tessivox::backend
