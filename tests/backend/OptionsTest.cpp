#include "backend/Options.h"

#include <gtest/gtest.h>

namespace tessivox::testing {
namespace {

using namespace backend;
using Arguments = std::vector<std::string>;

ServerOptions server(const Arguments& arguments, const std::optional<std::string>& file = std::nullopt) {
    const auto options = parseOptions(arguments, file);
    if (const auto* error = std::get_if<UsageError>(&options)) ADD_FAILURE() << error->sentence;
    return std::holds_alternative<ServerOptions>(options) ? std::get<ServerOptions>(options) : ServerOptions();
}

std::string problem(const Arguments& arguments, const std::optional<std::string>& file = std::nullopt) {
    const auto options = parseOptions(arguments, file);
    const auto* error = std::get_if<UsageError>(&options);
    return error ? error->sentence : "";
}

TEST(OptionsTest, ListenAtThisMachineWithPocketsphinxByDefault) {
    const auto options = server({});
    EXPECT_EQ(options.listen.address, "127.0.0.1");
    EXPECT_EQ(options.listen.port, 0);
    EXPECT_EQ(options.engine.engine, "pocketsphinx");
}

TEST(OptionsTest, TakeACommandToItsLastArgument) {
    const auto options = server({"--engine", "command", "--command", "whisper", "--help", "--engine"});
    EXPECT_EQ(options.engine.command, (Arguments{"whisper", "--help", "--engine"}));
}

TEST(OptionsTest, ArgumentsCountMoreThanTheFile) {
    const std::string file = R"({"engine":"command","command":["whisper","-x"],"max-jobs":7,"max-upload":"5"})";
    EXPECT_EQ(server({}, file).engine.command, (Arguments{"whisper", "-x"}));
    EXPECT_EQ(server({}, file).limits.queuedJobs, 7U);
    EXPECT_EQ(server({}, file).limits.uploadBytes, 5U << 20);
    EXPECT_EQ(server({"--max-jobs", "9"}, file).limits.queuedJobs, 9U);
    EXPECT_EQ(server({"--engine", "pocketsphinx"}, file).engine.engine, "pocketsphinx");
    EXPECT_EQ(server({"--inherited"}, R"({"listen":"[::1]:80"})").listen.port, 0);
    EXPECT_EQ(server({}, R"({"listen":"[::1]:80"})").listen.address, "::1");
}

TEST(OptionsTest, RefuseToServeOtherMachinesInTheOpen) {
    EXPECT_NE(problem({"--listen", "0.0.0.0:80"}), "");
    EXPECT_NE(problem({"--listen", "0.0.0.0:80", "--tls-cert", "c", "--tls-key", "k", "--host", "h"}), "");
    EXPECT_NE(problem({"--listen", "0.0.0.0:80", "--secret-file", "s", "--host", "h"}), "");
    EXPECT_EQ(
        problem({"--listen", "0.0.0.0:80", "--tls-cert", "c", "--tls-key", "k", "--host", "h", "--secret-file", "s"}),
        "");
}

TEST(OptionsTest, RefuseWhatMakesNoSense) {
    EXPECT_NE(problem({"--engine", "fake"}), "");
    EXPECT_NE(problem({"--fault", "usage:402"}), "");
    EXPECT_NE(problem({}, R"({"fault":"usage:402"})"), "");
    EXPECT_NE(problem({"--testing", "--fault", "nowhere:402"}), "");
    EXPECT_NE(problem({"--testing", "--fault", "usage:200"}), "");
    EXPECT_NE(problem({"--testing", "--fault", "usage:503*0"}), "");
    EXPECT_NE(problem({"--engine", "command"}), "");
    EXPECT_NE(problem({"--engine", "openai"}), "");
    EXPECT_NE(problem({"--openai-language", "English"}), "");
    EXPECT_NE(problem({"--openai-format", "srt"}), "");
    EXPECT_NE(problem({"--command", "whisper"}), "");
    EXPECT_NE(problem({"--command"}), "");
    EXPECT_NE(problem({"--listen"}), "");
    EXPECT_NE(problem({"--listen", "127.0.0.1"}), "");
    EXPECT_NE(problem({"--listen", "127.0.0.1:65536"}), "");
    EXPECT_NE(problem({"--tls-cert", "c"}), "");
    EXPECT_NE(problem({"--chat-url", "http://x"}), "");
    EXPECT_NE(problem({"--inherited", "--listen", "127.0.0.1:0"}), "");
    EXPECT_NE(problem({"--worker", "--verbose"}), "");
    EXPECT_NE(problem({"stray"}), "");
    EXPECT_NE(problem({}, "[]"), "");
    EXPECT_NE(problem({}, R"({"inherited":true})"), "");
    EXPECT_NE(problem({}, R"({"command":"whisper -x"})"), "");
    EXPECT_EQ(problem({"--max-jobs", "many"}), "--max-jobs needs a number from 1 to 10000, not \"many\".");
    EXPECT_EQ(problem({}, R"({"nonsense":1})"),
              "There is no setting \"nonsense\" in backend.json; tessivox-backend --help lists them.");
}

}  // namespace
}  // namespace tessivox::testing
