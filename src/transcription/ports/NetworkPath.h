#pragma once

#include <functional>

#include "base/Signal.h"

namespace tessivox::transcription {

/// Whether this computer has a way to other networks. Main thread.
class NetworkPath {
public:
    virtual ~NetworkPath() = default;
    virtual bool isAvailable() const = 0;
    /// Called with the new value after each change of it, and only then.
    [[nodiscard]] virtual base::Subscription onChange(std::function<void(bool isAvailable)> handler) = 0;
};

}  // namespace tessivox::transcription
