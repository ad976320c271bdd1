#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "base/Signal.h"
#include "platform/linux/posix/EventLoop.h"

namespace tessivox::posix {

/// Tells of changes in folders by inotify, at most once a folder and turn of the loop. Main thread.
class FolderWatcher {
public:
    explicit FolderWatcher(EventLoop& loop);
    ~FolderWatcher();

    /// Throws base::FileError if the folder cannot be watched. A folder that is removed is told once more, then no
    /// longer watched.
    base::Subscription watch(const std::filesystem::path& folder, std::function<void()> handler);

private:
    struct State;
    EventLoop& loop_;
    std::shared_ptr<State> state_;
    base::Subscription readable_;

    void begin();
};

}  // namespace tessivox::posix
