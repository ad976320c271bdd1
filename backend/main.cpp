#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "backend/Options.h"
#include "backend/Server.h"
#include "backend/worker/Worker.h"
#include "base/Log.h"
#include "platform/linux/posix/XdgFolders.h"

namespace {

using namespace tessivox;

constexpr int kFailed = 1;
constexpr int kUsage = 2;

void write(std::FILE* stream, const std::string& text) { std::fwrite(text.data(), 1, text.size(), stream); }

/// Does what the options ask for and gives what the process ends with.
struct Running {
    int operator()(const backend::ServerOptions& options) const {
        const char* asked = std::getenv("TESSIVOX_LOG");
        if (options.isVerbose || (asked && *asked != '\0')) {
            base::setLogSink([](std::string_view text) { write(stderr, "backend: " + std::string(text) + "\n"); });
        }
        return backend::runServer(options);
    }
    int operator()(backend::WorkerRole) const { return backend::runWorker(); }
    int operator()(const backend::Information& information) const {
        write(stdout, information.text);
        return 0;
    }
    int operator()(const backend::UsageError& error) const {
        write(stderr, error.sentence + "\n");
        return kUsage;
    }
};

/// Without this, a file that is opened later could take the place of a stream that was closed when the program started,
/// and get what is written for it.
void occupyStandardStreams() {
    int opened = ::open("/dev/null", O_RDWR);
    while (opened >= 0 && opened <= STDERR_FILENO) opened = ::open("/dev/null", O_RDWR);
    if (opened >= 0) ::close(opened);
}

std::optional<std::string> configuration() {
    const auto folders = posix::standardFolders(posix::processEnvironment());
    std::ifstream file(folders.configuration / "Tessivox" / "backend.json");
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

int main(int count, char** values) {
    occupyStandardStreams();
    try {
        const std::vector<std::string> arguments(values + 1, values + count);
        return std::visit(Running(), backend::parseOptions(arguments, configuration()));
    } catch (const std::exception& error) {
        write(stderr, std::string(error.what()) + "\n");
        return kFailed;
    }
}
