// Takes sound from a source as a process of its own: sound_listener SOURCE [peaks]. With "peaks" as a level meter does.
// Prints "listening" once it has a stream; answers "done" to each line "cork" or "uncork" on standard input, once the
// server has carried it out; ends with its standard input.

#include <pulse/pulseaudio.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

class Listener {
public:
    Listener(const std::string& source, bool takesPeaks) {
        pa_threaded_mainloop_start(loop_);
        const Lock lock(loop_);
        pa_context_set_state_callback(
            context_, [](pa_context*, void* me) { wake(me); }, this);
        pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
        waitUntil([this] { return pa_context_get_state(context_) == PA_CONTEXT_READY; });
        const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, takesPeaks ? 25U : 48000U, 1};
        stream_ = pa_stream_new(context_, takesPeaks ? "Peak detect" : "Listening", &spec, nullptr);
        pa_stream_set_state_callback(
            stream_, [](pa_stream*, void* me) { wake(me); }, this);
        pa_stream_set_read_callback(stream_, &Listener::drop, this);
        const auto flags = takesPeaks ? PA_STREAM_PEAK_DETECT | PA_STREAM_ADJUST_LATENCY : PA_STREAM_NOFLAGS;
        pa_stream_connect_record(stream_, source.c_str(), nullptr, static_cast<pa_stream_flags_t>(flags));
        waitUntil([this] { return pa_stream_get_state(stream_) == PA_STREAM_READY; });
    }

    void cork(bool isCorked) {
        const Lock lock(loop_);
        bool isDone = false;
        done_ = &isDone;
        const auto answer = [](pa_stream*, int, void* me) {
            *static_cast<Listener*>(me)->done_ = true;
            wake(me);
        };
        pa_operation_unref(pa_stream_cork(stream_, isCorked, answer, this));
        waitUntil([&] { return isDone; });
    }

private:
    struct Lock {
        explicit Lock(pa_threaded_mainloop* held) : loop(held) { pa_threaded_mainloop_lock(loop); }
        ~Lock() { pa_threaded_mainloop_unlock(loop); }
        pa_threaded_mainloop* loop;
    };

    pa_threaded_mainloop* loop_ = pa_threaded_mainloop_new();
    pa_context* context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "Sound listener");
    pa_stream* stream_ = nullptr;
    bool* done_ = nullptr;

    static void wake(void* me) { pa_threaded_mainloop_signal(static_cast<Listener*>(me)->loop_, 0); }

    static void drop(pa_stream* stream, std::size_t, void*) {
        const void* samples = nullptr;
        std::size_t size = 0;
        while (pa_stream_peek(stream, &samples, &size) == 0 && size > 0) pa_stream_drop(stream);
    }

    void waitUntil(const std::function<bool()>& condition) {
        while (!condition()) {
            const bool isGood = PA_CONTEXT_IS_GOOD(pa_context_get_state(context_)) &&
                                (!stream_ || PA_STREAM_IS_GOOD(pa_stream_get_state(stream_)));
            if (!isGood) throw std::runtime_error(pa_strerror(pa_context_errno(context_)));
            pa_threaded_mainloop_wait(loop_);
        }
    }
};

}  // namespace

int main(int count, char** words) try {
    if (count < 2) throw std::runtime_error("usage: sound_listener SOURCE [peaks]");
    Listener listener(words[1], count > 2);
    std::cout << "listening" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        listener.cork(line == "cork");
        std::cout << "done" << std::endl;
    }
    std::quick_exit(0);
} catch (const std::exception& error) {
    std::cerr << "cannot listen: " << error.what() << "\n";
    return 1;
}
