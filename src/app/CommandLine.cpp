#include "app/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
#include <iterator>
#include <span>
#include <utility>

#include "app/HelpTexts.h"
#include "base/Text.h"

#ifndef TESSIVOX_VERSION
#error "The build defines TESSIVOX_VERSION."
#endif

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using Arguments = std::span<const std::string>;

/// What stands behind it is a name, whatever it looks like.
constexpr std::string_view kEndOfOptions = "--";
constexpr std::int64_t kLongestRecording = std::int64_t{1000} * 3600;  // seconds
constexpr std::size_t kLongestBaseName = 243;                          // bytes, so that the names of all its files fit

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
};

/// What a command understands.
template <typename Options>
struct Syntax {
    std::string_view command;
    std::vector<Option<Options>> options;
    std::vector<Operand<Options>> operands;
};

template <typename Value>
bool store(std::optional<Value>& place, std::optional<Value> value) {
    place = std::move(value);
    return place.has_value();
}

std::optional<bool> onOrOff(std::string_view text) {
    if (text == "on") return true;
    if (text == "off") return false;
    return std::nullopt;
}

std::optional<MicrophoneChoice> microphoneChoice(const std::string& text) {
    if (text.empty()) return std::nullopt;
    if (text == "default") return MicrophoneChoice{};
    if (text == "none") return MicrophoneChoice{MicrophoneChoice::Kind::none, {}};
    return MicrophoneChoice{MicrophoneChoice::Kind::named, text};
}

Syntax<RecordOptions> recordSyntax() {
    std::vector<Option<RecordOptions>> known{
        {"--for", "a duration like 30s, 5m, 1h30m or 90",
         [](auto& options, auto& value) { return store(options.length, parseDuration(value)); }},
        {"--output", "a file name that ends in .m4a",
         [](auto& options, auto& value) {
             options.output = value;
             return !value.empty();
         }},
        {"--mic", "a microphone's name, default or none",
         [](auto& options, auto& value) { return store(options.microphone, microphoneChoice(value)); }},
        {"--system", "on or off",
         [](auto& options, auto& value) { return store(options.recordsSystemAudio, onOrOff(value)); }},
        {"--quality", "low, medium or high",
         [](auto& options, auto& value) { return store(options.quality, core::audioQuality(value)); }},
        {"--separate-tracks", "", [](auto& options, auto&) { return options.savesSeparateTracks = true; }},
    };
    return {"record", std::move(known), {}};
}

Syntax<DevicesOptions> devicesSyntax() {
    return {"devices", {{"--json", "", [](auto& options, auto&) { return options.asJSON = true; }}}, {}};
}

Syntax<RunOptions> runSyntax() {
    return {"run", {{"--headless", "", [](auto& options, auto&) { return options.isHeadless = true; }}}, {}};
}

Syntax<ListOptions> listSyntax() {
    return {"list", {{"--json", "", [](auto& options, auto&) { return options.asJSON = true; }}}, {}};
}

Syntax<RenameOptions> renameSyntax() {
    return {"rename",
            {},
            {{"FILE", [](auto& options, auto& value) { options.file = value; }},
             {"NAME", [](auto& options, auto& value) { options.name = value; }}}};
}

Syntax<TrashOptions> trashSyntax() {
    return {"trash", {}, {{"FILE", [](auto& options, auto& value) { options.file = value; }}}};
}

Syntax<RecoverOptions> recoverSyntax() { return {"recover", {}, {}}; }

UsageError usage(std::string_view english, std::initializer_list<std::string_view> values) {
    return {filled(localized(english), values)};
}

/// Understands the option that comes first, with its value, and takes them off; absent if they make sense.
template <typename Options>
std::optional<UsageError> parseOption(Arguments& rest, const std::vector<Option<Options>>& known, Options& options) {
    const std::string argument = rest.front();
    rest = rest.subspan(1);
    const auto equals = argument.starts_with("--") ? argument.find('=') : std::string::npos;
    const auto name = argument.substr(0, equals);
    const auto option = std::ranges::find(known, name, &Option<Options>::name);
    if (option == known.end()) return usage("\"{0}\" is not an option of this command; see --help.", {argument});

    std::string value;
    if (equals != std::string::npos) {
        if (option->expected.empty()) return usage("{0} takes no value.", {name});
        value = argument.substr(equals + 1);
    } else if (!option->expected.empty()) {
        if (rest.empty() || rest.front().starts_with("--"))
            return usage("{0} needs a value: {1}.", {name, option->expected});
        value = rest.front();
        rest = rest.subspan(1);
    }
    if (option->take(options, value)) return std::nullopt;
    return usage("\"{0}\" is no value for {1}: give {2}.", {value, name, option->expected});
}

/// Understands the names that a command takes, all of which it needs.
template <typename Options>
std::optional<UsageError> parseOperands(const std::vector<std::string>& given, const Syntax<Options>& syntax,
                                        Options& options) {
    const auto& operands = syntax.operands;
    for (std::size_t place = 0; place < operands.size(); ++place) {
        if (place >= given.size() || given[place].empty())
            return usage("tessivox {0} needs {1}; see --help.", {syntax.command, operands[place].name});
        operands[place].take(options, given[place]);
    }
    if (given.size() <= operands.size()) return std::nullopt;
    if (operands.empty()) return usage("\"{0}\" is not an option of this command; see --help.", {given.front()});
    return usage("\"{0}\" is one name too many: put a name with spaces in quotes.", {given[operands.size()]});
}

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

Command parseRecord(Arguments rest) {
    auto command = parseWith(recordSyntax(), rest);
    const auto* options = std::get_if<RecordOptions>(&command);
    if (!options || !options->output) return command;
    if (auto problem = outputNameProblem(*options->output)) return UsageError{std::move(*problem)};
    return command;
}

Command parseRun(Arguments rest) {
    auto command = parseWith(runSyntax(), rest);
    const auto* options = std::get_if<RunOptions>(&command);
    if (options && !options->isHeadless)
        return usage("This version has no windows yet: start it with tessivox run --headless.", {});
    return command;
}

struct KnownCommand {
    std::string_view name;
    std::string_view help;
    Command (*parse)(Arguments rest);
};

constexpr KnownCommand kCommands[] = {
    {"record", kRecordHelp, parseRecord},
    {"list", kListHelp, [](Arguments rest) { return parseWith(listSyntax(), rest); }},
    {"rename", kRenameHelp, [](Arguments rest) { return parseWith(renameSyntax(), rest); }},
    {"trash", kTrashHelp, [](Arguments rest) { return parseWith(trashSyntax(), rest); }},
    {"recover", kRecoverHelp, [](Arguments rest) { return parseWith(recoverSyntax(), rest); }},
    {"run", kRunHelp, parseRun},
    {"devices", kDevicesHelp, [](Arguments rest) { return parseWith(devicesSyntax(), rest); }},
};

bool asksForHelp(const std::string& argument) { return argument == "--help" || argument == "-h"; }

Command parseCommand(Arguments arguments) {
    if (arguments.empty()) return usage("Say what to do: tessivox record, or tessivox --help for more.", {});
    const auto& name = arguments.front();
    const auto optionsEnd = std::ranges::find(arguments, kEndOfOptions);
    const bool wantsHelp = std::any_of(arguments.begin(), optionsEnd, asksForHelp);
    const auto* known = std::ranges::find(kCommands, name, &KnownCommand::name);
    if (known != std::end(kCommands))
        return wantsHelp ? Command(Information{std::string(known->help)}) : known->parse(arguments.subspan(1));
    if (wantsHelp) return Information{std::string(kMainHelp)};
    if (name == "--version") return Information{"tessivox " TESSIVOX_VERSION "\n"};
    return usage("\"{0}\" is not a command; see tessivox --help.", {name});
}

/// The count before the next unit, which it takes off; absent if the text does not go on with one.
std::optional<std::int64_t> takeCount(std::string_view& text, char unit) {
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || count < 0 || count > kLongestRecording) return std::nullopt;
    const auto digits = static_cast<std::size_t>(end - text.data());
    const bool isBare = unit == '\0' && digits == text.size();
    if (!isBare && (digits == text.size() || text[digits] != unit)) return std::nullopt;
    text.remove_prefix(isBare ? digits : digits + 1);
    return count;
}

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& arguments) {
    auto others = arguments;
    const auto optionsEnd = std::ranges::find(others, kEndOfOptions);
    const auto kept = std::remove(others.begin(), optionsEnd, "--verbose");
    const bool isVerbose = kept != optionsEnd;
    others.erase(kept, optionsEnd);
    return {parseCommand(others), isVerbose};
}

std::optional<base::Duration> parseDuration(std::string_view text) {
    std::int64_t seconds = 0;
    if (const auto bare = takeCount(text, '\0')) {
        seconds = *bare;
    } else {
        seconds += takeCount(text, 'h').value_or(0) * 3600;
        seconds += takeCount(text, 'm').value_or(0) * 60;
        seconds += takeCount(text, 's').value_or(0);
    }
    if (!text.empty() || seconds < 1 || seconds > kLongestRecording) return std::nullopt;
    return std::chrono::seconds(seconds);
}

std::optional<std::string> outputNameProblem(const std::filesystem::path& output) {
    const auto name = output.filename().string();
    auto extension = output.extension().string();
    std::ranges::transform(extension, extension.begin(),
                           [](char letter) { return letter >= 'A' && letter <= 'Z' ? letter + ('a' - 'A') : letter; });
    if (name.starts_with('.'))
        return filled(localized("\"{0}\" would be hidden: give --output a name that does not begin with a dot."),
                      {output.string()});
    if (extension != ".m4a")
        return filled(localized("\"{0}\" does not end in .m4a: give --output a name that does."), {output.string()});
    if (output.stem().string().size() > kLongestBaseName)
        return localized("The name for --output is too long: give one of at most 243 bytes before .m4a.");
    return std::nullopt;
}

}  // namespace tessivox::app
