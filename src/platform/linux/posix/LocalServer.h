#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "base/Task.h"
#include "base/Timer.h"
#include "base/Units.h"
#include "base/ports/HttpClient.h"
#include "platform/linux/posix/AddressFile.h"
#include "platform/linux/posix/DetachedProcess.h"
#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/posix/XdgFolders.h"

namespace tessivox::posix {

/// This user's own transcription server: found by its address file, else started and kept up. It outlives its starter
/// while it has work, so this object's end only tells it, by the end of a pipe, that it is on its own. Main thread.
///
/// The program is started with `--inherited` and three descriptors: 3, a listening socket on 127.0.0.1; 4, the address
/// file, locked; 5, the end of a pipe to read, at whose end of file the starter is gone. The socket stays open here, so
/// that a server that crashed is started again under the same address and no request is refused meanwhile.
class LocalServer {
public:
    struct Options {
        std::filesystem::path addressFile;
        std::filesystem::path program;  ///< absolute; empty if it is not installed
        std::filesystem::path log;      ///< of its standard error, begun anew by each starter
        /// Before the second restart in a row; doubled from then on, up to the longest.
        base::Duration firstPause = std::chrono::seconds(1);
        base::Duration longestPause = std::chrono::seconds(60);
    };
    LocalServer(EventLoop& loop, Options options) : loop_(loop), options_(std::move(options)) {}
    LocalServer(const LocalServer&) = delete;
    LocalServer& operator=(const LocalServer&) = delete;

    /// The address of the server that lives, or that is started now. It may take up to two seconds while another
    /// process starts it. Throws base::HttpError with a sentence that says what to do.
    base::Task<std::string> baseURL();
    /// The address that was given last.
    const std::optional<std::string>& lastURL() const { return lastURL_; }

private:
    struct Own {
        std::string url;
        Descriptor log;
        Descriptor listener;
        Descriptor keptEnd;  ///< of the pipe; the server sees it close
        std::unique_ptr<DetachedProcess> process;
        std::optional<AddressFile> lock;  ///< held here only while no server runs
        int crashes = 0;                  ///< in a row
        base::HostTime startedAt{};
        base::Timer restart;
    };
    EventLoop& loop_;
    const Options options_;
    std::optional<std::string> lastURL_;
    std::unique_ptr<Own> own_;

    std::optional<std::string> findOrStart();
    std::string ownURL() const;
    std::string start(AddressFile file);
    void launch(Own& own);
    void onEnd(std::optional<int> exitCode);
    void takeOver(int looks);
    void restartLater(Own& own);
    void restart();
};

/// Where this user's server is found, how it is started, and where its complaints stand: in the session's folder for
/// such files, else in the state folder.
LocalServer::Options localServerOptions(const Environment& environment);

/// The program beside this one, else in the folders of PATH; empty if there is none that can be run.
std::filesystem::path findProgram(const std::string& name);

}  // namespace tessivox::posix
