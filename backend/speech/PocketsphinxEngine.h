#pragma once

#include <filesystem>

#include "backend/Engine.h"

namespace tessivox::backend {

/// The engine that is always there: finds speech, tells the voices apart and recognises American English with
/// pocketsphinx, on all processors but one. Good enough for clear, simple sentences; of free conversation it gets
/// between a quarter and a half of the words wrong.
class PocketsphinxEngine final : public Engine {
public:
    static inline const std::filesystem::path kDebianModel = "/usr/share/pocketsphinx/model/en-us";

    /// Throws base::Error with a sentence if the model is missing.
    explicit PocketsphinxEngine(std::filesystem::path model = kDebianModel);

    std::string name() const override { return "pocketsphinx"; }
    std::vector<Utterance> transcribe(const Sound& sound, const Progress& progress) override;

private:
    std::filesystem::path model_;
};

}  // namespace tessivox::backend
