#pragma once

#include "backend/Engine.h"
#include "backend/EngineOptions.h"

namespace tessivox::backend {

/// Hears what it was told to hear, for tests.
class FakeEngine final : public Engine {
public:
    explicit FakeEngine(FakeOptions options) : options_(std::move(options)) {}

    std::string name() const override { return "fake"; }
    std::vector<Utterance> transcribe(const Sound& sound, const Progress& progress) override;

private:
    FakeOptions options_;
};

}  // namespace tessivox::backend
