#include "backend/speech/ParallelWork.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace tessivox::backend {
namespace {

class Pool {
public:
    Pool(std::size_t count, const std::function<Worker()>& makeWorker, const std::function<void(std::size_t)>& onDone)
        : count_(count), makeWorker_(makeWorker), onDone_(onDone) {}

    void run(std::size_t threads) {
        {
            std::vector<std::jthread> others;
            for (std::size_t i = 1; i < threads; ++i) others.emplace_back([this] { work(); });
            work();
        }
        if (error_) std::rethrow_exception(error_);
    }

private:
    const std::size_t count_;
    const std::function<Worker()>& makeWorker_;
    const std::function<void(std::size_t)>& onDone_;
    std::atomic<std::size_t> next_ = 0;
    std::mutex mutex_;
    std::exception_ptr error_;  ///< under the mutex

    void work() {
        try {
            const Worker worker = makeWorker_();
            for (std::size_t index; (index = next_++) < count_;) {
                worker(index);
                const std::lock_guard lock(mutex_);
                onDone_(index);
            }
        } catch (...) {
            next_ = count_;
            const std::lock_guard lock(mutex_);
            if (!error_) error_ = std::current_exception();
        }
    }
};

}  // namespace

void workInParallel(std::size_t count, const std::function<Worker()>& makeWorker,
                    const std::function<void(std::size_t index)>& onDone) {
    if (count == 0) return;
    const std::size_t processors = std::max(2U, std::thread::hardware_concurrency());
    Pool(count, makeWorker, onDone).run(std::min(processors - 1, count));
}

}  // namespace tessivox::backend
