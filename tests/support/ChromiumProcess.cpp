#include "support/ChromiumProcess.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <fstream>
#include <stdexcept>
#include <vector>

namespace tessivox::testing {
namespace {

constexpr auto kPage = R"(<!doctype html><title>Call</title><script>
navigator.mediaDevices.getUserMedia({audio: true}).then(stream => { window.stream = stream; });
</script>)";

std::filesystem::path newFolder() {
    std::string name = "/tmp/tessivox-chromium-XXXXXX";
    if (!::mkdtemp(name.data())) throw std::runtime_error("cannot make a folder in /tmp");
    return name;
}

pid_t parentOf(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("PPid:")) return std::stoi(line.substr(5));
    }
    return 0;
}

/// The children of a process, and theirs.
std::vector<pid_t> descendants(pid_t process) {
    std::vector<pid_t> found;
    for (const auto& each : std::filesystem::directory_iterator("/proc")) {
        const auto name = each.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        const pid_t pid = std::stoi(name);
        for (pid_t above = parentOf(pid); above > 1; above = parentOf(above)) {
            if (above == process) found.push_back(pid);
        }
    }
    return found;
}

}  // namespace

ChromiumProcess::ChromiumProcess(SoundServer& server) : profile_(newFolder()) {
    // What it leaves behind comes to this process, which can wait for it.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    page_.willAlwaysAnswer(StubServer::status(200, "Content-Type: text/html\r\n", kPage));
    browser_ = server.spawn({"chromium", "--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run",
                             "--log-level=3", "--disable-background-networking", "--disable-component-update",
                             "--disable-sync", "--disable-default-apps", "--disable-extensions",
                             "--disable-dev-shm-usage", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1",
                             "--use-fake-ui-for-media-stream", "--user-data-dir=" + profile_.string(), page_.url()});
}

ChromiumProcess::~ChromiumProcess() {
    end();
    std::error_code ignored;
    std::filesystem::remove_all(profile_, ignored);
}

void ChromiumProcess::end() {
    if (browser_.pid() <= 0) return;
    const auto others = descendants(browser_.pid());
    browser_.stop(SIGKILL);
    for (const auto pid : others) ::kill(pid, SIGKILL);
    for (const auto pid : others) ::waitpid(pid, nullptr, 0);
}

}  // namespace tessivox::testing
