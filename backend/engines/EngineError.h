#pragma once

#include <string>
#include <utility>

#include "base/Error.h"

namespace tessivox::backend {

/// An engine, or the service behind it, could not do its work.
class EngineError : public base::Error {
public:
    explicit EngineError(std::string description) : Error("Tessivox.Engine", 1, std::move(description)) {}
};

}  // namespace tessivox::backend
