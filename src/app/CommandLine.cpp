#include "app/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <utility>

#include "app/CommandSyntax.h"
#include "app/HelpTexts.h"
#include "base/Text.h"
#include "transcription/ServerAddress.h"

#ifndef TESSIVOX_VERSION
#error "The build defines TESSIVOX_VERSION."
#endif

namespace tessivox::app {
namespace {

using base::filled;
using base::localized;
using core::ProgramRequest;

constexpr std::int64_t kLongestRecording = std::int64_t{1000} * 3600;  // seconds
constexpr std::size_t kLongestBaseName = 243;                          // bytes, so that the names of all its files fit

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
        {"--transcribe", "", [](auto& options, auto&) { return options.transcribes = true; }},
    };
    return {"record", std::move(known), {}};
}

Syntax<TranscribeOptions> transcribeSyntax() {
    return {"transcribe",
            {{"--wait", "", [](auto& options, auto&) { return options.waits = true; }}},
            {{"FILE", [](auto& options, auto& value) { options.file = value; }}}};
}

Syntax<ImportOptions> importSyntax() {
    return {"import", {}, {{"FILE", [](auto& options, auto& value) { options.files.emplace_back(value); }, true}}};
}

Syntax<SummarizeOptions> summarizeSyntax() {
    return {"summarize", {}, {{"FILE", [](auto& options, auto& value) { options.file = value; }}}};
}

Syntax<UsageOptions> usageSyntax() { return {"usage", {}, {}}; }

Syntax<DevicesOptions> devicesSyntax() {
    return {"devices", {{"--json", "", [](auto& options, auto&) { return options.asJSON = true; }}}, {}};
}

Syntax<RunOptions> runSyntax() {
    return {"run", {{"--headless", "", [](auto& options, auto&) { return options.isHeadless = true; }}}, {}};
}

Command parseControl(std::string_view name, ProgramRequest request, Arguments rest) {
    Syntax<ControlOptions> syntax{name, {}, {}};
    if (request == ProgramRequest::status)
        syntax.options.push_back({"--json", "", [](auto& options, auto&) { return options.asJSON = true; }});
    auto command = parseWith(syntax, rest);
    if (auto* options = std::get_if<ControlOptions>(&command)) options->request = request;
    return command;
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

std::optional<ShowFormat> showFormat(std::string_view text) {
    if (text == "text") return ShowFormat::text;
    if (text == "md") return ShowFormat::markdown;
    if (text == "srt") return ShowFormat::srt;
    if (text == "vtt") return ShowFormat::vtt;
    if (text == "json") return ShowFormat::json;
    return std::nullopt;
}

Syntax<ShowOptions> showSyntax() {
    return {"show",
            {{"--summary", "", [](auto& options, auto&) { return options.isSummary = true; }},
             {"--format", "text, md, srt, vtt or json",
              [](auto& options, auto& value) {
                  const auto format = showFormat(value);
                  if (format) options.format = *format;
                  return format.has_value();
              }}},
            {{"FILE", [](auto& options, auto& value) { options.file = value; }}}};
}

Syntax<GetOptions> getSyntax() {
    return {"get",
            {},
            {{.name = "KEY", .take = [](auto& options, auto& value) { options.key = value; }, .isOptional = true}}};
}

Syntax<SetOptions> setSyntax() {
    return {"set",
            {},
            {{"KEY", [](auto& options, auto& value) { options.key = value; }},
             {.name = "VALUE", .take = [](auto& options, auto& value) { options.value = value; }, .mayBeEmpty = true}}};
}

/// What `tessivox exclude` understands behind its action.
Syntax<ExcludeOptions> excludeSyntax(ExcludeAction action) {
    if (action == ExcludeAction::list)
        return {"exclude list", {{"--json", "", [](auto& options, auto&) { return options.asJSON = true; }}}, {}};
    return {action == ExcludeAction::add ? "exclude add" : "exclude remove",
            {},
            {{"APP", [](auto& options, auto& value) { options.apps.push_back(value); }, true}}};
}

Syntax<RecoverOptions> recoverSyntax() { return {"recover", {}, {}}; }

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
        return usageError("This version has no windows yet: start it with tessivox run --headless.", {});
    return command;
}

Command parseShow(Arguments rest) {
    auto command = parseWith(showSyntax(), rest);
    const auto* options = std::get_if<ShowOptions>(&command);
    const bool isCaptions = options && (options->format == ShowFormat::srt || options->format == ShowFormat::vtt);
    if (isCaptions && options->isSummary) return UsageError{summaryFormatProblem()};
    return command;
}

Command parseExclude(Arguments rest) {
    constexpr std::pair<std::string_view, ExcludeAction> kActions[] = {
        {"list", ExcludeAction::list}, {"add", ExcludeAction::add}, {"remove", ExcludeAction::remove}};
    const auto* known = rest.empty() ? std::end(kActions)
                                     : std::ranges::find(kActions, rest.front(), [](auto& each) { return each.first; });
    if (known == std::end(kActions))
        return usageError("Say what to do: tessivox exclude list, add or remove; see --help.", {});
    auto command = parseWith(excludeSyntax(known->second), rest.subspan(1));
    if (auto* options = std::get_if<ExcludeOptions>(&command)) options->action = known->second;
    return command;
}

struct KnownCommand {
    std::string_view name;
    std::string_view help;
    Command (*parse)(Arguments rest);
};

constexpr KnownCommand kCommands[] = {
    {"record", kRecordHelp, parseRecord},
    {"import", kImportHelp, [](Arguments rest) { return parseWith(importSyntax(), rest); }},
    {"transcribe", kTranscribeHelp, [](Arguments rest) { return parseWith(transcribeSyntax(), rest); }},
    {"summarize", kSummarizeHelp, [](Arguments rest) { return parseWith(summarizeSyntax(), rest); }},
    {"list", kListHelp, [](Arguments rest) { return parseWith(listSyntax(), rest); }},
    {"show", kShowHelp, parseShow},
    {"rename", kRenameHelp, [](Arguments rest) { return parseWith(renameSyntax(), rest); }},
    {"trash", kTrashHelp, [](Arguments rest) { return parseWith(trashSyntax(), rest); }},
    {"recover", kRecoverHelp, [](Arguments rest) { return parseWith(recoverSyntax(), rest); }},
    {"run", kRunHelp, parseRun},
    {"get", kGetHelp, [](Arguments rest) { return parseWith(getSyntax(), rest); }},
    {"set", kSetHelp, [](Arguments rest) { return parseWith(setSyntax(), rest); }},
    {"exclude", kExcludeHelp, parseExclude},
    {"start", kStartHelp, [](Arguments rest) { return parseControl("start", ProgramRequest::start, rest); }},
    {"stop", kStopHelp, [](Arguments rest) { return parseControl("stop", ProgramRequest::stop, rest); }},
    {"pause", kPauseHelp, [](Arguments rest) { return parseControl("pause", ProgramRequest::pause, rest); }},
    {"resume", kResumeHelp, [](Arguments rest) { return parseControl("resume", ProgramRequest::resume, rest); }},
    {"toggle", kToggleHelp, [](Arguments rest) { return parseControl("toggle", ProgramRequest::toggle, rest); }},
    {"status", kStatusHelp, [](Arguments rest) { return parseControl("status", ProgramRequest::status, rest); }},
    {"usage", kUsageHelp, [](Arguments rest) { return parseWith(usageSyntax(), rest); }},
    {"devices", kDevicesHelp, [](Arguments rest) { return parseWith(devicesSyntax(), rest); }},
};

bool asksForHelp(const std::string& argument) { return argument == "--help" || argument == "-h"; }

Command parseCommand(Arguments arguments) {
    if (arguments.empty()) return usageError("Say what to do: tessivox record, or tessivox --help for more.", {});
    const auto& name = arguments.front();
    const auto optionsEnd = std::ranges::find(arguments, kEndOfOptions);
    const bool wantsHelp = std::any_of(arguments.begin(), optionsEnd, asksForHelp);
    const auto* known = std::ranges::find(kCommands, name, &KnownCommand::name);
    if (known != std::end(kCommands))
        return wantsHelp ? Command(Information{std::string(known->help)}) : known->parse(arguments.subspan(1));
    if (wantsHelp) return Information{std::string(kMainHelp)};
    if (name == "--version") return Information{"tessivox " TESSIVOX_VERSION "\n"};
    return usageError("\"{0}\" is not a command; see tessivox --help.", {name});
}

/// What every command knows.
std::vector<Option<CommandLine>> commonOptions() {
    return {{"--verbose", "", [](auto& line, auto&) { return line.isVerbose = true; }},
            {"--server", "an address like https://example.org/api, or http:// on this computer",
             [](auto& line, auto& value) {
                 line.server = value;
                 return transcription::baseURLOf(value).has_value();
             }},
            {"--ca-file", "a file of certificates (PEM)", [](auto& line, auto& value) {
                 line.caFile = value;
                 return !value.empty();
             }}};
}

/// Understands them wherever they stand and gives the other arguments.
std::optional<UsageError> takeCommonOptions(Arguments rest, CommandLine& line, std::vector<std::string>& others) {
    const auto known = commonOptions();
    while (!rest.empty() && rest.front() != kEndOfOptions) {
        const auto name = rest.front().substr(0, rest.front().find('='));
        if (std::ranges::find(known, name, &Option<CommandLine>::name) == known.end()) {
            others.push_back(rest.front());
            rest = rest.subspan(1);
        } else if (auto problem = parseOption(rest, known, line)) {
            return problem;
        }
    }
    others.insert(others.end(), rest.begin(), rest.end());
    return std::nullopt;
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
    CommandLine line;
    std::vector<std::string> others;
    if (auto problem = takeCommonOptions(arguments, line, others))
        line.command = std::move(*problem);
    else
        line.command = parseCommand(others);
    return line;
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

std::string summaryFormatProblem() { return localized("A summary has no times: give --format text, md or json."); }

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
