#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tessivox::testing {

/// What a server has answered; status 0 if nothing came that one could read.
struct Reply {
    int status = 0;
    std::string head;
    std::string body;
};

/// Sends the bytes to a port of 127.0.0.1 and reads until the other side hangs up or an answer is whole.
Reply exchange(std::uint16_t port, std::string_view bytes);
/// A connected socket, or -1.
int connectTo(std::uint16_t port);

/// tessivox-backend in a process of its own. Its standard error goes to the file "errors" beside its state folder.
class BackendProcess {
public:
    using Path = std::filesystem::path;
    using Headers = std::map<std::string, std::string>;

    /// Descriptors that become 3, 4, ... of the program.
    BackendProcess(const Path& program, const std::vector<std::string>& arguments, const Path& errors,
                   const std::vector<int>& inherited = {});
    BackendProcess(const BackendProcess&) = delete;
    BackendProcess& operator=(const BackendProcess&) = delete;
    /// Kills it.
    ~BackendProcess();

    pid_t pid() const { return pid_; }
    /// Reads the address that a server started by hand prints; whether one came.
    bool waitForUrl();
    void setUrl(const std::string& url) { url_ = url; }
    const std::string& url() const { return url_; }
    std::uint16_t port() const;
    /// "/SECRET/api" and the path.
    std::string target(const std::string& path) const;

    Reply get(const std::string& path, const Headers& headers = {}) const;
    Reply post(const std::string& path, const std::string& type, const std::string& body,
               const Headers& headers = {}) const;
    /// The whole text of such a request.
    std::string request(const std::string& method, const std::string& path, const Headers& headers,
                        const std::string& body = {}) const;
    /// As the client sends it.
    Reply upload(const std::string& bytes, const std::string& name = "a.m4a") const;
    static std::string multipart(const std::string& boundary, const std::string& bytes, const std::string& name);

    /// Sends the signal and waits for the end; the exit status, or minus the signal that ended it.
    int stop(int signal);
    /// Waits for its end by itself; absent as -1000 after 20 seconds.
    int wait();

private:
    pid_t pid_ = -1;
    int output_ = -1;
    std::string url_;
};

}  // namespace tessivox::testing
