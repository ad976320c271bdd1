#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/posix/Descriptor.h"

namespace tessivox::backend {

/// A process group of its own for a program and whatever it starts. All of it ends when the object goes, and also when
/// this process ends in any way, SIGKILL included: the group's first member waits for that.
class ProcessGroup {
public:
    /// If this process ends first, the folder is removed with all that is in it. Throws EngineError.
    explicit ProcessGroup(const std::filesystem::path& folder);
    ProcessGroup(const ProcessGroup&) = delete;
    ProcessGroup& operator=(const ProcessGroup&) = delete;
    ~ProcessGroup() { end(); }

    /// Starts a program, looked up in PATH, with an empty standard input and these descriptors as standard output and
    /// error; all others are closed. Its environment is this process's without TESSIVOX_..., where keys stand, and with
    /// the folder as TMPDIR. Once. Throws EngineError.
    void start(const std::vector<std::string>& arguments, int output, int errors);
    /// Becomes readable when the program ends.
    const posix::Descriptor& programEnd() const { return programEnd_; }
    /// The status of the program, which has ended, as by waitpid(2).
    int status();
    /// Ends all members that are left.
    void end() noexcept;

private:
    std::string folder_;
    posix::Descriptor life_;  ///< the group's first member reads the other end
    posix::Descriptor programEnd_;
    pid_t keeper_ = 0;   ///< also the group's number
    pid_t program_ = 0;  ///< 0 also once its status was taken

    void startKeeper(int life);
};

}  // namespace tessivox::backend
