#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace tessivox::testing {

enum class SoundServerKind { pulseAudio, pipeWire };

/// Name of the kind for test names: "PulseAudio", "PipeWire".
std::string nameOf(SoundServerKind kind);

/// A child process that dies with the test.
class ChildProcess {
public:
    ChildProcess() = default;
    /// Starts a program with pipes to its standard input and from its standard output. The environment is the test's
    /// with these "NAME=value" entries replaced. Throws std::runtime_error.
    ChildProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment);
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;
    /// Kills it and waits for its end.
    ~ChildProcess() { stop(9); }

    void stop(int signal);
    /// Waits for its end by itself; gives the exit status.
    int wait();
    void closeInput();
    /// One line of its output, without the newline; empty at the end of the output or after the limit.
    std::string readLine(int limitMilliseconds = 20000);
    /// Writes a line to its input and gives the line it answers.
    std::string ask(const std::string& line);
    /// All output until its end.
    std::string readAll();
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
};

/// A private sound server with virtual devices (scripts/private-sound-server): the sinks "speakers" (default) and
/// "micfeed", and the source "mic" (default), which hears what is played into micfeed. Throws std::runtime_error with a
/// sentence if the machine lacks a daemon: a test must fail then, not be left out.
class SoundServer {
public:
    explicit SoundServer(SoundServerKind kind);
    SoundServer(const SoundServer&) = delete;
    ~SoundServer();

    /// The value of PULSE_SERVER; the same after restart().
    const std::string& address() const { return address_; }
    SoundServerKind kind() const { return kind_; }

    /// Ends the server as a crash would.
    void kill();
    /// Starts it again at the same address, after kill().
    void restart();

    unsigned loadModule(const std::vector<std::string>& arguments);
    void unloadModule(unsigned index);
    /// The index of the loaded module whose arguments contain the text.
    unsigned moduleWith(const std::string& text);
    void setDefaultSink(const std::string& name);
    void setDefaultSource(const std::string& name);
    /// Adds the sink "room" and the microphone "roommic", which hears it at the very moment it is played, so that the
    /// two can be compared by the clock. Returns the microphone's module.
    unsigned addRoom();

    /// On PipeWire: the links from a source's ports, each as the names of its two ports.
    std::vector<std::pair<std::string, std::string>> linksFrom(const std::string& source);

    /// Plays into a sink from another process until the returned child is destroyed: "sine HZ [HZ-RIGHT]" or
    /// "clicks PERIOD-MS". Returns once it is being heard.
    ChildProcess play(const std::string& sink, const std::vector<std::string>& signal);

    /// Takes sound from a source in another process until the returned child is destroyed; it answers "cork" and
    /// "uncork". With "peaks" it is a level meter. Returns once it has a stream.
    ChildProcess listen(const std::string& source, const std::string& how = {});

    /// Runs a client of this server (pactl, pw-link) and gives its output; throws if it fails.
    std::string run(const std::vector<std::string>& command);
    ChildProcess spawn(const std::vector<std::string>& command);

private:
    SoundServerKind kind_;
    std::filesystem::path folder_;
    std::string address_;
    ChildProcess server_;

    std::vector<std::string> environment() const;
    ChildProcess spawnUntil(const std::vector<std::string>& command, const std::string& expected);
};

}  // namespace tessivox::testing
