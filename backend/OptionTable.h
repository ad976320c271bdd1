#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "backend/Options.h"

namespace tessivox::backend {

/// One option that takes a value, or none.
struct OptionEntry {
    std::string_view name;      ///< without "--"
    std::string_view value;     ///< what its value is called in the help; empty if it takes none
    std::string_view help;      ///< one paragraph
    std::string_view expected;  ///< what the value has to be, for the sentence when it is not
    /// Stores the value; false if it makes no sense.
    std::function<bool(ServerOptions&, const std::string& value)> take;
};

/// In the order of the help. "command", which takes all that follows, is not among them.
std::span<const OptionEntry> optionTable();

/// The whole text of --help.
std::string helpText();

}  // namespace tessivox::backend
