#pragma once

#include <filesystem>
#include <memory>

#include "backend/Engine.h"
#include "backend/EngineOptions.h"
#include "backend/Summarizer.h"

namespace tessivox::backend {

/// The engine that the options name; what it keeps for a while stands in `folder`, which is the user's alone. Throws
/// base::Error with a sentence if it cannot be had. Worker process.
std::unique_ptr<Engine> makeEngine(const EngineOptions& options, const std::filesystem::path& folder);

/// Who summarises: the chat endpoint if there is one, else the extract. Any process.
std::unique_ptr<Summarizer> makeSummarizer(const EngineOptions& options);

}  // namespace tessivox::backend
