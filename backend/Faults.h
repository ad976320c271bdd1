#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessivox::backend {

/// How one answer is spoiled.
struct Fault {
    enum class Kind { status, slow, cut, malformed, none };
    Kind kind = Kind::status;
    int status = 0;                      ///< if it is one
    std::chrono::milliseconds delay{0};  ///< if it is slow

    bool operator==(const Fault&) const = default;
};

/// Faults on order, for tests of clients: endpoint by endpoint, in the order of the rules. Any thread.
class Faults {
public:
    struct Rule {
        std::string endpoint;  ///< such as "submit", see kEndpoints
        Fault fault;
        int count = 0;  ///< of answers; 0: all that follow

        bool operator==(const Rule&) const = default;
    };
    using Rules = std::vector<Rule>;

    /// "ENDPOINT:KIND[*COUNT]" with commas between several. KIND is a status, "slow=SECONDS", "cut", "malformed", or
    /// "none" for an answer as it should be. Absent if it is not that.
    static std::optional<Rules> parse(std::string_view text);

    explicit Faults(Rules rules) : rules_(std::move(rules)) {}

    /// Forgets what was ordered before.
    void order(Rules rules);

    /// What happens to the next answer of an endpoint.
    std::optional<Fault> next(std::string_view endpoint);

private:
    std::mutex mutex_;
    Rules rules_;
};

}  // namespace tessivox::backend
