#include "backend/EngineFactory.h"

#include "backend/worker/FakeEngine.h"
#include "base/Error.h"

namespace tessivox::backend {
namespace {

/// Where no other one is to be had.
class NoSummarizer final : public Summarizer {
public:
    std::string summarize(const std::string&, const std::optional<std::string>& title) override {
        return "# Title: " + title.value_or("Meeting notes") + "\n\nThere is too little text for a summary.\n";
    }
    Headline headline(const std::string&) override { return {}; }
};

}  // namespace

std::unique_ptr<Engine> makeEngine(const EngineOptions& options) {
    if (options.engine == "fake") return std::make_unique<FakeEngine>(options.fake);
    throw base::Error("backend", 1,
                      "This build has no engine \"" + options.engine + "\"; choose another with --engine.");
}

std::unique_ptr<Summarizer> makeSummarizer(const EngineOptions&) { return std::make_unique<NoSummarizer>(); }

}  // namespace tessivox::backend
