#include "platform/linux/posix/FolderWatcher.h"

#include <sys/epoll.h>
#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>

#include "platform/linux/posix/Descriptor.h"
#include "platform/linux/posix/FileErrors.h"
#include "platform/linux/posix/Retry.h"

namespace tessivox::posix {
namespace {

constexpr std::uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY | IN_CLOSE_WRITE |
                                   IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr int kOverflow = -1;  // the watch number of IN_Q_OVERFLOW

/// The watch numbers of all events that wait.
std::set<int> readChanged(int inotify) {
    std::set<int> changed;
    alignas(inotify_event) std::array<char, 16384> buffer;
    while (true) {
        const auto got = retry([&] { return ::read(inotify, buffer.data(), buffer.size()); });
        if (got <= 0) return changed;
        for (std::size_t at = 0; at < static_cast<std::size_t>(got);) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            changed.insert(event.wd);
            at += sizeof event + event.len;
        }
    }
}

}  // namespace

struct FolderWatcher::State {
    Descriptor inotify;
    struct Folder {
        base::Signal<> changed;
        int handlers = 0;
    };
    std::map<int, Folder> folders;

    void tell() {
        const auto changed = readChanged(inotify.get());
        std::set<int> told = changed;
        if (changed.contains(kOverflow)) {
            for (const auto& [number, folder] : folders) told.insert(number);
        }
        for (const int number : told) {
            const auto found = folders.find(number);
            if (found == folders.end()) continue;
            const auto signal = found->second.changed;  // a handler may end the last registration
            signal.emit();
        }
    }

    void release(int number) {
        const auto found = folders.find(number);
        if (found == folders.end() || --found->second.handlers > 0) return;
        folders.erase(found);
        ::inotify_rm_watch(inotify.get(), number);
    }
};

FolderWatcher::FolderWatcher(EventLoop& loop) : loop_(loop), state_(std::make_shared<State>()) {}

FolderWatcher::~FolderWatcher() = default;

base::Subscription FolderWatcher::watch(const std::filesystem::path& folder, std::function<void()> handler) {
    if (!state_->inotify) begin();
    const int number = ::inotify_add_watch(state_->inotify.get(), folder.c_str(), kChanges);
    if (number < 0) throw fileError(errno, "watch", folder);
    auto& entry = state_->folders[number];
    ++entry.handlers;
    // One end for both: the handler's registration, and the folder's if it was the last.
    auto registration = std::make_shared<base::Subscription>(entry.changed.observe(std::move(handler)));
    return base::Subscription([weak = std::weak_ptr(state_), number, registration] {
        registration->reset();
        if (const auto state = weak.lock()) state->release(number);
    });
}

void FolderWatcher::begin() {
    state_->inotify = Descriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!state_->inotify) throw fileError(errno, "watch", "inotify");
    readable_ = loop_.watch(state_->inotify.get(), EPOLLIN, [this](std::uint32_t) {
        const auto state = state_;
        state->tell();
    });
}

}  // namespace tessivox::posix
