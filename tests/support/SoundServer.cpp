#include "support/SoundServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace tessivox::testing {
namespace {

std::vector<std::string> merged(const std::vector<std::string>& replaced) {
    std::vector<std::string> result = replaced;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        const auto name = text.substr(0, text.find('=') + 1);
        bool isReplaced = false;
        for (const auto& other : replaced) isReplaced = isReplaced || other.starts_with(name);
        if (!isReplaced) result.push_back(text);
    }
    return result;
}

std::vector<char*> pointers(const std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (const auto& text : texts) result.push_back(const_cast<char*>(text.c_str()));
    result.push_back(nullptr);
    return result;
}

std::string joined(const std::vector<std::string>& words) {
    std::string result;
    for (const auto& word : words) result += (result.empty() ? "" : " ") + word;
    return result;
}

void closeIfOpen(int& descriptor) {
    if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
}

}  // namespace

std::string nameOf(SoundServerKind kind) { return kind == SoundServerKind::pulseAudio ? "PulseAudio" : "PipeWire"; }

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) < 0 || pipe2(output, O_CLOEXEC) < 0) throw std::runtime_error("no pipe");
    // Everything is built before the fork: other threads may hold the allocator's lock during it.
    const auto entries = merged(environment);
    const auto argumentPointers = pointers(command);
    const auto environmentPointers = pointers(entries);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        execvpe(argumentPointers[0], argumentPointers.data(), environmentPointers.data());
        _exit(127);
    }
    ::close(input[0]);
    ::close(output[1]);
    input_ = input[1];
    output_ = output[0];
    if (pid_ < 0) throw std::runtime_error("cannot start " + joined(command));
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept { *this = std::move(other); }

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    std::swap(pid_, other.pid_);
    std::swap(input_, other.input_);
    std::swap(output_, other.output_);
    return *this;
}

void ChildProcess::stop(int signal) {
    if (pid_ > 0) {
        ::kill(pid_, signal);
        wait();
    }
    closeInput();
    closeIfOpen(output_);
}

int ChildProcess::wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void ChildProcess::closeInput() { closeIfOpen(input_); }

std::string ChildProcess::readLine(int limitMilliseconds) {
    std::string line;
    for (char letter = 0;;) {
        pollfd ready{output_, POLLIN, 0};
        if (poll(&ready, 1, limitMilliseconds) <= 0) return {};
        if (read(output_, &letter, 1) != 1 || letter == '\n') return line;
        line += letter;
    }
}

std::string ChildProcess::ask(const std::string& line) {
    const auto question = line + "\n";
    if (write(input_, question.data(), question.size()) != static_cast<ssize_t>(question.size())) return {};
    return readLine();
}

std::string ChildProcess::readAll() {
    std::string all;
    char part[4096];
    for (ssize_t count = 0; (count = read(output_, part, sizeof part)) > 0;) {
        all.append(part, static_cast<std::size_t>(count));
    }
    return all;
}

SoundServer::SoundServer(SoundServerKind kind) : kind_(kind) {
    // A socket's path is short, so the folder is not below a long temporary directory.
    std::string pattern = "/tmp/tessivox-sound-XXXXXX";
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a folder in /tmp");
    folder_ = pattern;
    restart();
}

SoundServer::~SoundServer() {
    kill();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void SoundServer::kill() { server_.stop(SIGTERM); }

void SoundServer::restart() {
    const std::string name = kind_ == SoundServerKind::pulseAudio ? "pulseaudio" : "pipewire";
    server_ = ChildProcess({TESSIVOX_SOURCE_DIR "/scripts/private-sound-server", name, folder_.string()}, {});
    const auto line = server_.readLine(60000);
    const std::string expected = "ready PULSE_SERVER=";
    if (!line.starts_with(expected)) {
        throw std::runtime_error("No private " + nameOf(kind_) + " could be started; see standard error.");
    }
    address_ = line.substr(expected.size());
}

std::vector<std::string> SoundServer::environment() const {
    return {"PULSE_SERVER=" + address_, "XDG_RUNTIME_DIR=" + (folder_ / "run").string(),
            "HOME=" + (folder_ / "home").string(), "LC_ALL=C"};
}

ChildProcess SoundServer::spawn(const std::vector<std::string>& command) { return {command, environment()}; }

std::string SoundServer::run(const std::vector<std::string>& command) {
    auto child = spawn(command);
    child.closeInput();
    const auto output = child.readAll();
    if (child.wait() != 0) throw std::runtime_error("failed: " + joined(command));
    return output;
}

unsigned SoundServer::loadModule(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{"pactl", "load-module"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return static_cast<unsigned>(std::stoul(run(command)));
}

void SoundServer::unloadModule(unsigned index) { run({"pactl", "unload-module", std::to_string(index)}); }

unsigned SoundServer::moduleWith(const std::string& text) {
    std::istringstream lines(run({"pactl", "list", "short", "modules"}));
    for (std::string line; std::getline(lines, line);) {
        if (line.find(text) != std::string::npos) return static_cast<unsigned>(std::stoul(line));
    }
    throw std::runtime_error("no module with " + text);
}

void SoundServer::setDefaultSink(const std::string& name) { run({"pactl", "set-default-sink", name}); }

void SoundServer::setDefaultSource(const std::string& name) { run({"pactl", "set-default-source", name}); }

unsigned SoundServer::addRoom() {
    // PulseAudio hands a microphone behind a sink with norewinds the sound one block before it is played.
    loadModule({"module-null-sink", "sink_name=room", "rate=48000", "channels=2"});
    return loadModule({"module-remap-source", "master=room.monitor", "source_name=roommic", "channels=1",
                       "channel_map=mono", "master_channel_map=front-left"});
}

std::vector<std::pair<std::string, std::string>> SoundServer::linksFrom(const std::string& source) {
    // Each output port stands on a line of its own, followed by "  |-> PORT" for each of its links.
    std::istringstream lines(run({"pw-link", "-l"}));
    std::vector<std::pair<std::string, std::string>> links;
    const std::string arrow = "  |-> ";
    std::string port;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("  ")) port = line;
        if (line.starts_with(arrow) && port.starts_with(source + ":"))
            links.emplace_back(port, line.substr(arrow.size()));
    }
    return links;
}

ChildProcess SoundServer::play(const std::string& sink, const std::vector<std::string>& signal) {
    std::vector<std::string> command{TESSIVOX_SOUND_PLAYER, sink};
    command.insert(command.end(), signal.begin(), signal.end());
    return spawnUntil(command, "playing");
}

ChildProcess SoundServer::listen(const std::string& source, const std::string& how) {
    std::vector<std::string> command{TESSIVOX_SOUND_LISTENER, source};
    if (!how.empty()) command.push_back(how);
    return spawnUntil(command, "listening");
}

ChildProcess SoundServer::spawnUntil(const std::vector<std::string>& command, const std::string& expected) {
    auto child = spawn(command);
    if (child.readLine() != expected) throw std::runtime_error("failed: " + joined(command));
    return child;
}

}  // namespace tessivox::testing
