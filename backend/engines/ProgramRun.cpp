#include "backend/engines/ProgramRun.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>

#include "backend/engines/EngineError.h"
#include "backend/engines/ProcessGroup.h"
#include "backend/engines/Utf8.h"
#include "base/Text.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::backend {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::size_t kLastWords = 4096;  // bytes

/// What a program writes to one of its outputs.
class OutputPipe {
public:
    OutputPipe() {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw EngineError(std::string("Cannot start a speech program: ") + std::strerror(errno) + ".");
        }
        read_ = posix::Descriptor(ends[0]);
        write_ = posix::Descriptor(ends[1]);
        ::fcntl(read_.get(), F_SETFL, O_NONBLOCK);
    }

    int writeEnd() const { return write_.get(); }
    /// So that the pipe ends with the program.
    void closeWriteEnd() { write_ = posix::Descriptor(); }
    /// -1 once it has ended, which poll(2) passes over.
    int readEnd() const { return hasEnded_ ? -1 : read_.get(); }

    /// Appends what is there, at most about 64 KiB a call; false if there was nothing.
    bool drain(std::string& text) {
        std::array<char, 65536> buffer;
        const auto got = posix::retry([&] { return ::read(read_.get(), buffer.data(), buffer.size()); });
        hasEnded_ = got == 0 || (got < 0 && errno != EAGAIN);
        if (got > 0) text.append(buffer.data(), static_cast<std::size_t>(got));
        return got > 0;
    }

private:
    posix::Descriptor read_;
    posix::Descriptor write_;
    bool hasEnded_ = false;
};

std::uint64_t sizeOfFiles(const std::filesystem::path& folder) {
    namespace fs = std::filesystem;
    std::uint64_t size = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code gone;
        if (!entry->is_regular_file(gone) || entry->is_symlink(gone)) continue;
        if (const auto bytes = entry->file_size(gone); !gone) size += bytes;
    }
    return size;
}

class ProgramRun {
public:
    ProgramRun(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
               const ProgramLimits& limits)
        : name_(briefLine(std::filesystem::path(arguments.at(0)).filename().string(), 80)),
          folder_(folder),
          limits_(limits),
          deadline_(Clock::now() + limits.time),
          sizeBefore_(sizeOfFiles(folder)),
          group_(folder) {
        group_.start(arguments, output_.writeEnd(), errors_.writeEnd());
        output_.closeWriteEnd();
        errors_.closeWriteEnd();
    }

    std::string toEnd() {
        while (!waitForNews()) checkLimits();
        const int status = group_.status();
        group_.end();
        // Whoever left the group may hold the pipes open for ever: what is in them now is all.
        while (output_.drain(text_)) checkLimits();
        while (errors_.drain(lastWords_)) cutLastWords();
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) fail(howItEnded(status) + inItsWords());
        return std::move(text_);
    }

private:
    static constexpr auto kLook = 200ms;  ///< between two looks at the folder

    std::string name_;
    std::filesystem::path folder_;
    ProgramLimits limits_;
    Clock::time_point deadline_;
    std::uint64_t sizeBefore_;
    OutputPipe output_;
    OutputPipe errors_;
    std::string text_;
    std::string lastWords_;
    Clock::time_point nextLook_{};
    ProcessGroup group_;  // last, so that it ends first

    /// True if the program has ended.
    bool waitForNews() {
        std::array<pollfd, 3> waiting{pollfd{group_.programEnd().get(), POLLIN, 0},
                                      pollfd{output_.readEnd(), POLLIN, 0}, pollfd{errors_.readEnd(), POLLIN, 0}};
        ::poll(waiting.data(), waiting.size(), static_cast<int>(kLook / 1ms));
        if (waiting[1].revents != 0) output_.drain(text_);
        if (waiting[2].revents != 0) errors_.drain(lastWords_);
        cutLastWords();
        return waiting[0].revents != 0;
    }

    void checkLimits() {
        const auto now = Clock::now();
        if (now > deadline_) {
            fail("did not finish within " + std::to_string(limits_.time / 1s) +
                 " s and was ended. Allow it more time, or choose a smaller model" + inItsWords());
        }
        if (text_.size() > limits_.output) failForSize();
        if (now < nextLook_) return;
        nextLook_ = now + kLook;
        if (sizeOfFiles(folder_) > sizeBefore_ + limits_.output) failForSize();
    }

    [[noreturn]] void failForSize() {
        fail("wrote more than " + std::to_string(limits_.output >> 20U) + " MiB and was ended. Check its options");
    }

    [[noreturn]] void fail(const std::string& what) const {
        throw EngineError("The speech program \"" + name_ + "\" " + what + ".");
    }

    static std::string howItEnded(int status) {
        if (WIFSIGNALED(status)) return "was ended by signal " + std::to_string(WTERMSIG(status));
        return "failed with status " + std::to_string(WEXITSTATUS(status));
    }

    void cutLastWords() {
        if (lastWords_.size() > kLastWords) lastWords_.erase(0, lastWords_.size() - kLastWords);
    }

    /// The last line that it wrote to standard error.
    std::string inItsWords() const {
        std::string_view words = base::trimmed(lastWords_);
        words.remove_prefix(std::min(words.rfind('\n') + 1, words.size()));
        auto line = briefLine(words, 300);
        while (line.ends_with('.')) line.pop_back();
        return line.empty() ? "" : ": " + line;
    }
};

}  // namespace

std::string runProgram(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
                       const ProgramLimits& limits) {
    return ProgramRun(arguments, folder, limits).toEnd();
}

}  // namespace tessivox::backend
