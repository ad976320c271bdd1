#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "backend/EngineOptions.h"
#include "backend/Faults.h"

namespace tessivox::backend {

/// What a server takes on.
struct Limits {
    std::uint64_t uploadBytes = std::uint64_t{1} << 30;
    std::uint64_t queuedBytes = std::uint64_t{8} << 30;
    std::size_t queuedJobs = 100;
    double soundHours = 12;
    double leastSeconds = 180;  ///< how long any job may take, beside what the engine may
};

/// Where a server listens that nobody started for himself alone.
struct ListenOptions {
    std::string address = "127.0.0.1";
    std::uint16_t port = 0;  ///< 0: any that is free
    std::string host;        ///< the name in its address; empty: the address
    std::filesystem::path certificate;
    std::filesystem::path key;
    std::filesystem::path secretFile;  ///< empty: a new secret at each start
};

struct ServerOptions {
    bool isInherited = false;  ///< socket, address file and pipe came from the starter
    ListenOptions listen;
    std::filesystem::path state;  ///< empty: the user's state folder
    EngineOptions engine;
    Limits limits;
    Faults::Rules faults;
    std::chrono::seconds clockOffset{0};  ///< for tests: how far the wall clock is said to be ahead
    std::chrono::seconds idleTime{60};    ///< how long a server without owner and work waits for requests
    bool isTesting = false;
    bool isVerbose = false;
};

/// The program is to be a server's worker.
struct WorkerRole {};

/// A text that was asked for.
struct Information {
    std::string text;
};

/// Options that make no sense; the sentence says what to do.
struct UsageError {
    std::string sentence;
};

using Options = std::variant<ServerOptions, WorkerRole, Information, UsageError>;

/// Understands the arguments, without the program's name, over the text of the configuration file, if there is one.
Options parseOptions(const std::vector<std::string>& arguments, const std::optional<std::string>& configuration);

}  // namespace tessivox::backend
