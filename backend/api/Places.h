#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace tessivox::backend {

/// Bounds how many do something at a time, and how many wait for their turn. Any thread.
class Places {
public:
    Places(std::size_t places, std::size_t waiting, std::chrono::milliseconds patience)
        : free_(places), mayWait_(waiting), patience_(patience) {}

    /// A place for as long as it lives; false if there was none in time, or too many wait already.
    class Place {
    public:
        explicit Place(Places& all) : all_(all), isHeld_(all.take()) {}
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;
        ~Place() {
            if (isHeld_) all_.give();
        }
        explicit operator bool() const { return isHeld_; }

    private:
        Places& all_;
        const bool isHeld_;
    };

private:
    std::mutex mutex_;
    std::condition_variable freed_;
    std::size_t free_;
    std::size_t mayWait_;
    const std::chrono::milliseconds patience_;

    bool take() {
        std::unique_lock lock(mutex_);
        if (free_ == 0) {
            if (mayWait_ == 0) return false;
            --mayWait_;
            const bool isFree = freed_.wait_for(lock, patience_, [this] { return free_ > 0; });
            ++mayWait_;
            if (!isFree) return false;
        }
        --free_;
        return true;
    }
    void give() {
        {
            const std::lock_guard lock(mutex_);
            ++free_;
        }
        freed_.notify_one();
    }
};

}  // namespace tessivox::backend
