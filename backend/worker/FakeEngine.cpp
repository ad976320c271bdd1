#include "backend/worker/FakeEngine.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace tessivox::backend {

std::vector<Utterance> FakeEngine::transcribe(const Sound&, const Progress& progress) {
    constexpr double kStep = 0.1;  // seconds
    for (double done = 0; done < options_.seconds; done += kStep) {
        progress(done / options_.seconds);
        std::this_thread::sleep_for(std::chrono::duration<double>(std::min(kStep, options_.seconds - done)));
    }
    if (options_.text.empty()) return {};
    return {{0, options_.length, options_.text, "Speaker A"}};
}

}  // namespace tessivox::backend
