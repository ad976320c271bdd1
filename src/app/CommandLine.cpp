#include "app/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
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

const std::vector<Option<RecordOptions>>& recordOptions() {
    static const std::vector<Option<RecordOptions>> kOptions{
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
    return kOptions;
}

const std::vector<Option<DevicesOptions>>& devicesOptions() {
    static const std::vector<Option<DevicesOptions>> kOptions{
        {"--json", "", [](auto& options, auto&) { return options.asJSON = true; }},
    };
    return kOptions;
}

UsageError usage(std::string_view english, std::initializer_list<std::string_view> values) {
    return {filled(localized(english), values)};
}

/// Understands the first argument, with its value, and takes them off; absent if they make sense.
template <typename Options>
std::optional<UsageError> parseOne(Arguments& rest, const std::vector<Option<Options>>& known, Options& options) {
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

template <typename Options>
Command parseOptions(Arguments rest, const std::vector<Option<Options>>& known) {
    Options options;
    while (!rest.empty()) {
        if (auto problem = parseOne(rest, known, options)) return std::move(*problem);
    }
    return options;
}

Command parseRecord(Arguments rest) {
    auto command = parseOptions(rest, recordOptions());
    const auto* options = std::get_if<RecordOptions>(&command);
    if (!options || !options->output) return command;
    if (auto problem = outputNameProblem(*options->output)) return UsageError{std::move(*problem)};
    return command;
}

bool asksForHelp(const std::string& argument) { return argument == "--help" || argument == "-h"; }

Command parseCommand(Arguments arguments) {
    if (arguments.empty()) return usage("Say what to do: tessivox record, or tessivox --help for more.", {});
    const auto& name = arguments.front();
    const auto rest = arguments.subspan(1);
    const bool wantsHelp = std::ranges::any_of(arguments, asksForHelp);
    if (name == "record") return wantsHelp ? Command(Information{std::string(kRecordHelp)}) : parseRecord(rest);
    if (name == "devices")
        return wantsHelp ? Command(Information{std::string(kDevicesHelp)}) : parseOptions(rest, devicesOptions());
    if (wantsHelp) return Information{std::string(kMainHelp)};
    if (name == "--version") return Information{"tessivox " TESSIVOX_VERSION "\n"};
    return usage("\"{0}\" is not a command: give record or devices; see tessivox --help.", {name});
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
    const bool isVerbose = std::erase(others, "--verbose") > 0;
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
