#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tessivox::bench {

/// The table of a benchmark: what was measured against its limit, and how a peer did in the same run. Rows are printed
/// as they come.
class Report {
public:
    explicit Report(bool isSmoke);

    /// A row that passes if the figure is not above, or not below, the limit.
    void atMost(const std::string& what, double limit, double measured, const std::string& unit);
    void atLeast(const std::string& what, double limit, double measured, const std::string& unit);
    /// How the row above compares: our figure and the peer's, in the unit of that row.
    void peer(const std::string& name, double ours, double theirs, const std::string& unit);
    void note(const std::string& sentence) const;

    /// 1 if a limit was missed, unless the run was too short to mean anything.
    int exitStatus() const { return isMissed_ && !isSmoke_ ? 1 : 0; }

private:
    bool isSmoke_;
    bool isMissed_ = false;

    void row(const std::string& what, const char* relation, double limit, double measured, const std::string& unit,
             bool isGood);
};

/// Runs a benchmark and gives its exit status; what it throws becomes a sentence on standard error and status 1.
int runOrExplain(const char* name, const std::function<int()>& benchmark);

}  // namespace tessivox::bench
