#include "app/CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tessivox::app {
namespace {

using namespace std::chrono_literals;
using Arguments = std::vector<std::string>;

template <typename Expected>
Expected parsedAs(const Arguments& arguments) {
    const auto line = parseCommandLine(arguments);
    if (const auto* problem = std::get_if<UsageError>(&line.command)) ADD_FAILURE() << problem->sentence;
    return std::get<Expected>(line.command);
}

std::string problemOf(const Arguments& arguments) {
    const auto line = parseCommandLine(arguments);
    const auto* problem = std::get_if<UsageError>(&line.command);
    return problem ? problem->sentence : "";
}

TEST(CommandLineTest, LeavesEverythingToTheSettingsUnlessToldOtherwise) {
    const auto options = parsedAs<RecordOptions>({"record"});
    EXPECT_FALSE(options.length || options.output || options.microphone || options.recordsSystemAudio ||
                 options.quality || options.savesSeparateTracks || options.transcribes);
}

TEST(CommandLineTest, TakesEveryOptionOfRecordInBothForms) {
    const Arguments spaced{"record", "--for",    "1h30m", "--output",  "/tmp/A.M4A", "--mic",
                           "USB",    "--system", "off",   "--quality", "high",       "--separate-tracks"};
    const Arguments joined{"record",       "--for=90m",      "--output=/tmp/A.M4A", "--mic=USB",
                           "--system=off", "--quality=high", "--separate-tracks"};
    for (const auto& arguments : {spaced, joined}) {
        const auto options = parsedAs<RecordOptions>(arguments);
        EXPECT_EQ(options.length, 90min);
        EXPECT_EQ(options.output, "/tmp/A.M4A");
        EXPECT_EQ(options.microphone, (MicrophoneChoice{MicrophoneChoice::Kind::named, "USB"}));
        EXPECT_EQ(options.recordsSystemAudio, false);
        EXPECT_EQ(options.quality, core::AudioQuality::high);
        EXPECT_TRUE(options.savesSeparateTracks);
    }
    EXPECT_EQ(parsedAs<RecordOptions>({"record", "--mic", "none"}).microphone->kind, MicrophoneChoice::Kind::none);
    EXPECT_EQ(parsedAs<RecordOptions>({"record", "--mic", "default"}).microphone, MicrophoneChoice{});
}

TEST(CommandLineTest, FindsVerboseAndHelpAnywhere) {
    EXPECT_TRUE(parseCommandLine({"--verbose", "record"}).isVerbose);
    EXPECT_TRUE(parseCommandLine({"devices", "--json", "--verbose"}).isVerbose);
    EXPECT_FALSE(parseCommandLine({"devices"}).isVerbose);
    EXPECT_TRUE(parsedAs<DevicesOptions>({"--verbose", "devices", "--json"}).asJSON);
    EXPECT_NE(parsedAs<Information>({"--help"}).text.find("tessivox devices"), std::string::npos);
    EXPECT_NE(parsedAs<Information>({"record", "--for", "x", "-h"}).text.find("--separate-tracks"), std::string::npos);
    EXPECT_NE(parsedAs<Information>({"devices", "--help"}).text.find("\"defaultInput\""), std::string::npos);
    EXPECT_EQ(parsedAs<Information>({"--version"}).text.substr(0, 9), "tessivox ");
}

TEST(CommandLineTest, TakesNamesOfAnyLookBehindTwoDashes) {
    const auto renaming = parsedAs<RenameOptions>({"rename", "a talk.m4a", "--verbose", "The talk"});
    EXPECT_EQ(renaming.file, "a talk.m4a");
    EXPECT_EQ(renaming.name, "The talk");
    for (const std::string name : {"--help", "--verbose", "--", "-a.m4a", "x=\n"}) {
        const Arguments arguments{"trash", "--", name};
        EXPECT_EQ(parsedAs<TrashOptions>(arguments).file, name);
        EXPECT_FALSE(parseCommandLine(arguments).isVerbose);
    }
    EXPECT_EQ(parsedAs<TrashOptions>({"trash", "-"}).file, "-");
    EXPECT_TRUE(parsedAs<ListOptions>({"list", "--json"}).asJSON);
    EXPECT_TRUE(parsedAs<RunOptions>({"run", "--headless"}).isHeadless);
}

TEST(CommandLineTest, ShowsATranscriptAsPlainTextUnlessToldOtherwise) {
    const auto plain = parsedAs<ShowOptions>({"show", "a talk"});
    EXPECT_EQ(plain.file, "a talk");
    EXPECT_FALSE(plain.isSummary);
    EXPECT_EQ(plain.format, ShowFormat::text);
    const auto summary = parsedAs<ShowOptions>({"show", "--summary", "--format=md", "a"});
    EXPECT_TRUE(summary.isSummary);
    EXPECT_EQ(summary.format, ShowFormat::markdown);
    EXPECT_EQ(parsedAs<ShowOptions>({"show", "a", "--format", "vtt"}).format, ShowFormat::vtt);
}

TEST(CommandLineTest, TakesSettingsAndApplicationsAsTheyAreGiven) {
    EXPECT_FALSE(parsedAs<GetOptions>({"get"}).key);
    EXPECT_EQ(parsedAs<GetOptions>({"get", "audioQuality"}).key, "audioQuality");
    EXPECT_EQ(parsedAs<SetOptions>({"set", "serverURL", ""}).value, "");
    const auto setting = parsedAs<SetOptions>({"set", "--", "recordingsDirectory", "--odd"});
    EXPECT_EQ(setting.key, "recordingsDirectory");
    EXPECT_EQ(setting.value, "--odd");
    EXPECT_TRUE(parsedAs<ExcludeOptions>({"exclude", "list", "--json"}).asJSON);
    const auto adding = parsedAs<ExcludeOptions>({"exclude", "add", "us.zoom", "OBS Studio"});
    EXPECT_EQ(adding.action, ExcludeAction::add);
    EXPECT_EQ(adding.apps, (Arguments{"us.zoom", "OBS Studio"}));
    EXPECT_EQ(parsedAs<ExcludeOptions>({"exclude", "remove", "a"}).action, ExcludeAction::remove);
}

TEST(CommandLineTest, FindsServerAndCertificatesAnywhere) {
    for (const Arguments& arguments :
         {Arguments{"--server", "https://example.org/api", "--ca-file", "/ca.pem", "transcribe", "a", "--wait"},
          Arguments{"transcribe", "--wait", "a", "--ca-file=/ca.pem", "--server=https://example.org/api"}}) {
        EXPECT_EQ(parsedAs<TranscribeOptions>(arguments).file, "a");
        EXPECT_TRUE(parsedAs<TranscribeOptions>(arguments).waits);
        EXPECT_EQ(parseCommandLine(arguments).server, "https://example.org/api");
        EXPECT_EQ(parseCommandLine(arguments).caFile, "/ca.pem");
    }
    EXPECT_FALSE(parsedAs<TranscribeOptions>({"transcribe", "--", "--server"}).waits);
    EXPECT_FALSE(parseCommandLine({"transcribe", "--", "--server"}).server);
    EXPECT_TRUE(parsedAs<RecordOptions>({"record", "--transcribe"}).transcribes);
    EXPECT_EQ(parsedAs<ImportOptions>({"import", "a.wav", "--verbose", "b.mp3", "--", "-c.caf"}).files,
              (std::vector<std::filesystem::path>{"a.wav", "b.mp3", "-c.caf"}));
    EXPECT_EQ(parsedAs<SummarizeOptions>({"summarize", "b.m4a"}).file, "b.m4a");
    parsedAs<UsageOptions>({"usage", "--server", "http://127.0.0.1:8080"});
}

TEST(CommandLineTest, ExplainsEveryCommandThatItsHelpLists) {
    const auto text = parsedAs<Information>({"--help"}).text;
    for (const std::string name : {"record", "import", "transcribe", "summarize", "usage", "list", "show", "rename",
                                   "trash", "recover", "run", "devices", "get", "set", "exclude"}) {
        EXPECT_NE(text.find("tessivox " + name), std::string::npos) << name;
        EXPECT_NE(parsedAs<Information>({name, "--help"}).text.find("Usage:\n  tessivox " + name), std::string::npos);
    }
}

TEST(CommandLineTest, NamesWhatItDoesNotUnderstandAndWhatToGive) {
    const std::vector<std::pair<Arguments, std::string>> cases{
        {{}, "tessivox record"},
        {{"rec"}, "\"rec\""},
        {{"--json"}, "\"--json\""},
        {{"record", "file.m4a"}, "\"file.m4a\""},
        {{"record", "--fast"}, "\"--fast\""},
        {{"record", "--json"}, "\"--json\""},
        {{"devices", "--for", "3s"}, "\"--for\""},
        {{"record", "--for"}, "--for needs a value"},
        {{"record", "--output", "--separate-tracks"}, "--output needs a value"},
        {{"record", "--separate-tracks=yes"}, "takes no value"},
        {{"record", "--for", "soon"}, "1h30m"},
        {{"record", "--system", "yes"}, "on or off"},
        {{"record", "--quality", "Best"}, "low, medium or high"},
        {{"record", "--mic="}, "default or none"},
        {{"record", "--output="}, ".m4a"},
        {{"record", "--output", "a.wav"}, ".m4a"},
        {{"run"}, "tessivox run --headless"},
        {{"run", "now"}, "\"now\""},
        {{"list", "--headless"}, "\"--headless\""},
        {{"recover", "a.m4a"}, "\"a.m4a\""},
        {{"trash"}, "tessivox trash needs FILE"},
        {{"trash", ""}, "tessivox trash needs FILE"},
        {{"trash", "-a.m4a"}, "\"-a.m4a\""},
        {{"trash", "Team", "talk.m4a"}, "in quotes"},
        {{"transcribe"}, "tessivox transcribe needs FILE"},
        {{"import"}, "tessivox import needs FILE"},
        {{"import", "a.wav", ""}, "tessivox import needs FILE"},
        {{"usage", "now"}, "\"now\""},
        {{"usage", "--server"}, "--server needs a value"},
        {{"usage", "--server", "http://example.org"}, "https://example.org/api"},
        {{"usage", "--ca-file="}, "PEM"},
        {{"--verbose=yes", "list"}, "takes no value"},
        {{"show"}, "tessivox show needs FILE"},
        {{"show", "a", "--format", "doc"}, "text, md, srt, vtt or json"},
        {{"show", "a", "--summary", "--format", "srt"}, "no times"},
        {{"rename", "a.m4a"}, "tessivox rename needs NAME"},
        {{"get", "a", "b"}, "in quotes"},
        {{"get", ""}, "tessivox get needs KEY"},
        {{"set", "audioQuality"}, "tessivox set needs VALUE"},
        {{"set", "audioQuality", "-1"}, "\"-1\""},
        {{"exclude"}, "list, add or remove"},
        {{"exclude", "Zoom"}, "list, add or remove"},
        {{"exclude", "list", "Zoom"}, "\"Zoom\""},
        {{"exclude", "add"}, "tessivox exclude add needs APP"},
        {{"exclude", "add", "--json", "Zoom"}, "\"--json\""},
        {{"exclude", "remove", ""}, "tessivox exclude remove needs APP"},
    };
    for (const auto& [arguments, expected] : cases) {
        const auto problem = problemOf(arguments);
        EXPECT_NE(problem.find(expected), std::string::npos) << expected << " is not in: " << problem;
    }
}

TEST(CommandLineTest, ReadsDurations) {
    const std::vector<std::pair<std::string, base::Duration>> good{
        {"30s", 30s},    {"5m", 5min},      {"1h30m", 90min}, {"90", 90s},      {"1h", 1h},
        {"1h5s", 3605s}, {"1h2m3s", 3723s}, {"90m", 90min},   {"1000h", 1000h}, {"007s", 7s}};
    for (const auto& [text, expected] : good) EXPECT_EQ(parseDuration(text), expected) << text;
    for (const auto* text : {"", "0", "0s", "s", "-5", "+5", " 5", "5 ", "1.5h", "30s1h", "1h30", "5m5m", "1001h",
                             "99999999999999999999", "3600001", "5x", "1H"})
        EXPECT_FALSE(parseDuration(text)) << text;
}

TEST(CommandLineTest, AllowsOnlyVisibleNamesThatEveryFileOfARecordingFits) {
    EXPECT_FALSE(outputNameProblem("a.m4a"));
    EXPECT_FALSE(outputNameProblem("/tmp/A.b.M4A"));
    EXPECT_FALSE(outputNameProblem(std::string(243, 'x') + ".m4a"));
    for (const std::string& name :
         {std::string("a"), std::string("a.mp4"), std::string("m4a"), std::string("folder/"), std::string("a.m4a/"),
          std::string(".a.m4a"), std::string("x/.m4a"), std::string(244, 'x') + ".m4a"})
        EXPECT_TRUE(outputNameProblem(name)) << name;
}

}  // namespace
}  // namespace tessivox::app
