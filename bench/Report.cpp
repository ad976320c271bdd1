#include "Report.h"

#include <cstdio>
#include <exception>

namespace tessivox::bench {

Report::Report(bool isSmoke) : isSmoke_(isSmoke) {
    if (isSmoke_) note("A short run: it shows that everything works, its figures mean little.");
    std::printf("%-58s %14s %14s\n", "", "limit", "measured");
}

void Report::atMost(const std::string& what, double limit, double measured, const std::string& unit) {
    row(what, "<=", limit, measured, unit, measured <= limit);
}

void Report::atLeast(const std::string& what, double limit, double measured, const std::string& unit) {
    row(what, ">=", limit, measured, unit, measured >= limit);
}

void Report::row(const std::string& what, const char* relation, double limit, double measured, const std::string& unit,
                 bool isGood) {
    isMissed_ = isMissed_ || !isGood;
    std::printf("%-58s %3s %10.6g %14.6g %-6s %s\n", what.c_str(), relation, limit, measured, unit.c_str(),
                isGood ? "pass" : "MISSED");
    std::fflush(stdout);
}

void Report::peer(const std::string& name, double ours, double theirs, const std::string& unit) {
    std::printf("  peer: %-50s %14s %14.6g %-6s", name.c_str(), "", theirs, unit.c_str());
    if (theirs > 0) std::printf(" ours/peer %.3g", ours / theirs);
    std::printf("\n");
    std::fflush(stdout);
}

void Report::note(const std::string& sentence) const {
    std::printf("  %s\n", sentence.c_str());
    std::fflush(stdout);
}

int runOrExplain(const char* name, const std::function<int()>& benchmark) {
    try {
        return benchmark();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return 1;
    }
}

}  // namespace tessivox::bench
