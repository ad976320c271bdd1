#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/CommandLine.h"
#include "base/Text.h"

namespace tessivox::app {

using Arguments = std::span<const std::string>;

/// What stands behind it is a name, whatever it looks like.
inline constexpr std::string_view kEndOfOptions = "--";

/// One option of a command.
template <typename Options>
struct Option {
    std::string_view name;
    std::string_view expected;  ///< what its value has to be; empty if it takes none
    /// Stores the value; false if it makes no sense.
    std::function<bool(Options&, const std::string& value)> take;
};

/// One name that a command takes without an option, in its place.
template <typename Options>
struct Operand {
    std::string_view name;
    std::function<void(Options&, const std::string& value)> take;
    bool repeats = false;     ///< may be given more than once; only a command's last one
    bool isOptional = false;  ///< may be left out; only a command's last one
    bool mayBeEmpty = false;
};

/// What a command understands.
template <typename Options>
struct Syntax {
    std::string_view command;
    std::vector<Option<Options>> options;
    std::vector<Operand<Options>> operands;
};

inline UsageError usageError(std::string_view english, std::initializer_list<std::string_view> values) {
    return {base::filled(base::localized(english), values)};
}

/// Understands the option that comes first, with its value, and takes them off; absent if they make sense.
template <typename Options>
std::optional<UsageError> parseOption(Arguments& rest, const std::vector<Option<Options>>& known, Options& options) {
    const std::string argument = rest.front();
    rest = rest.subspan(1);
    const auto equals = argument.starts_with("--") ? argument.find('=') : std::string::npos;
    const auto name = argument.substr(0, equals);
    const auto option = std::ranges::find(known, name, &Option<Options>::name);
    if (option == known.end()) return usageError("\"{0}\" is not an option of this command; see --help.", {argument});

    std::string value;
    if (equals != std::string::npos) {
        if (option->expected.empty()) return usageError("{0} takes no value.", {name});
        value = argument.substr(equals + 1);
    } else if (!option->expected.empty()) {
        if (rest.empty() || rest.front().starts_with("--"))
            return usageError("{0} needs a value: {1}.", {name, option->expected});
        value = rest.front();
        rest = rest.subspan(1);
    }
    if (option->take(options, value)) return std::nullopt;
    return usageError("\"{0}\" is no value for {1}: give {2}.", {value, name, option->expected});
}

/// Understands the names that a command takes.
template <typename Options>
std::optional<UsageError> parseOperands(const std::vector<std::string>& given, const Syntax<Options>& syntax,
                                        Options& options) {
    const auto& operands = syntax.operands;
    const bool isOpen = !operands.empty() && operands.back().repeats;
    const auto most = isOpen ? std::max(given.size(), operands.size()) : operands.size();
    for (std::size_t place = 0; place < most; ++place) {
        const auto& operand = operands[std::min(place, operands.size() - 1)];
        if (place >= given.size() && operand.isOptional) break;
        if (place >= given.size() || (given[place].empty() && !operand.mayBeEmpty))
            return usageError("tessivox {0} needs {1}; see --help.", {syntax.command, operand.name});
        operand.take(options, given[place]);
    }
    if (given.size() <= most) return std::nullopt;
    if (operands.empty()) return usageError("\"{0}\" is not an option of this command; see --help.", {given.front()});
    return usageError("\"{0}\" is one name too many: put a name with spaces in quotes.", {given[operands.size()]});
}

/// Understands all arguments of a command.
template <typename Options>
Command parseWith(const Syntax<Options>& syntax, Arguments rest) {
    Options options;
    std::vector<std::string> operands;
    while (!rest.empty() && rest.front() != kEndOfOptions) {
        if (rest.front().starts_with('-') && rest.front() != "-") {
            if (auto problem = parseOption(rest, syntax.options, options)) return std::move(*problem);
        } else {
            operands.push_back(rest.front());
            rest = rest.subspan(1);
        }
    }
    if (!rest.empty()) operands.insert(operands.end(), rest.begin() + 1, rest.end());
    if (auto problem = parseOperands(operands, syntax, options)) return std::move(*problem);
    return options;
}

}  // namespace tessivox::app
