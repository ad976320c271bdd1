#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/Task.h"

namespace tessivox::core {

enum class AlertStyle { informational, warning, critical };

/// A modal question or message. All texts are localized.
struct Alert {
    AlertStyle style = AlertStyle::informational;
    std::string message;  ///< one line
    std::string text;     ///< what explains it, below
    /// The first is the default.
    std::vector<std::string> buttons;
    /// Index of the button that loses nothing: what closing the window means, and the answer where nobody can be asked.
    std::size_t safeChoice = 0;
};

/// Shows alerts, one after the other. Main thread.
class Alerts {
public:
    virtual ~Alerts() = default;
    /// Brings the application to the front, shows the alert and gives the index of the button that was chosen. The main
    /// loop goes on meanwhile. Where there is no screen, it logs the alert and gives the safe choice. Does not throw;
    /// destroying the task closes the alert.
    virtual base::Task<std::size_t> show(Alert alert) = 0;
};

}  // namespace tessivox::core
