#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "app/CommandLine.h"
#include "app/Composition.h"
#include "app/ExitCode.h"
#include "base/Log.h"

namespace {

using namespace tessivox;
using app::ExitCode;

void write(std::FILE* stream, const std::string& text) { std::fwrite(text.data(), 1, text.size(), stream); }

/// Does what a command line asks for and gives what the process ends with.
struct Running {
    const app::CommandLine& line;

    ExitCode operator()(app::RecordOptions options) const {
        if (options.output) options.output = std::filesystem::absolute(*options.output);
        return app::Composition(line).record(options);
    }
    ExitCode operator()(const app::TranscribeOptions& options) const {
        return app::Composition(line).transcribe(options);
    }
    ExitCode operator()(const app::SummarizeOptions& options) const {
        return app::Composition(line).summarize(options);
    }
    ExitCode operator()(app::ImportOptions options) const {
        for (auto& file : options.files) file = std::filesystem::absolute(file);
        return app::Composition(line).importFiles(options);
    }
    ExitCode operator()(const app::UsageOptions&) const { return app::Composition(line).usage(); }
    ExitCode operator()(const app::DevicesOptions& options) const {
        return app::Composition(line).listDevices(options);
    }
    ExitCode operator()(const app::RunOptions&) const { return app::Composition(line).run(); }
    ExitCode operator()(const app::ControlOptions& options) const { return app::Composition(line).control(options); }
    ExitCode operator()(const app::ListOptions& options) const { return app::Composition(line).list(options); }
    ExitCode operator()(const app::ShowOptions& options) const { return app::Composition(line).show(options); }
    ExitCode operator()(const app::RenameOptions& options) const { return app::Composition(line).rename(options); }
    ExitCode operator()(const app::TrashOptions& options) const { return app::Composition(line).trash(options); }
    ExitCode operator()(const app::RecoverOptions&) const { return app::Composition(line).recover(); }
    ExitCode operator()(const app::GetOptions& options) const { return app::Composition(line).get(options); }
    ExitCode operator()(const app::SetOptions& options) const { return app::Composition(line).set(options); }
    ExitCode operator()(const app::ExcludeOptions& options) const { return app::Composition(line).exclude(options); }
    ExitCode operator()(const app::Information& information) const {
        write(stdout, information.text);
        return ExitCode::done;
    }
    ExitCode operator()(const app::UsageError& error) const {
        write(stderr, error.sentence + "\n");
        return ExitCode::usage;
    }
};

/// Without this, a file that is opened later could take the place of a stream that was closed when the program started,
/// and get what is written for it.
void occupyStandardStreams() {
    int opened = ::open("/dev/null", O_RDWR);
    while (opened >= 0 && opened <= STDERR_FILENO) opened = ::open("/dev/null", O_RDWR);
    if (opened >= 0) ::close(opened);
}

bool wantsLog(const app::CommandLine& line) {
    const char* asked = std::getenv("TESSIVOX_LOG");
    return line.isVerbose || (asked && *asked != '\0');
}

ExitCode run(const std::vector<std::string>& arguments) {
    const auto line = app::parseCommandLine(arguments);
    if (wantsLog(line)) base::setLogSink([](std::string_view text) { write(stderr, std::string(text) + "\n"); });
    return std::visit(Running{line}, line.command);
}

}  // namespace

int main(int count, char** values) {
    occupyStandardStreams();
    try {
        return static_cast<int>(run(std::vector<std::string>(values + 1, values + count)));
    } catch (const std::exception& error) {
        write(stderr, std::string(error.what()) + "\n");
        return static_cast<int>(ExitCode::failed);
    }
}
