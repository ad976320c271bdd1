// What converting live sound costs a buffer, and that it allocates nothing once it runs.
//   bench_convert [--smoke] [--seconds N]
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <vector>

#include "Measure.h"
#include "SpokenDialogue.h"
#include "platform/linux/ffmpeg/SwrConverter.h"

namespace tessivox::bench {
namespace {

struct Source {
    const char* name;
    double rate;
    int channels;
    std::size_t frames;  ///< in a buffer
};

/// False if a buffer allocated.
bool measure(const Source& source, double seconds) {
    std::vector<float> stereo;
    SpokenDialogue().next(source.frames, stereo);
    stereo.resize(source.frames * static_cast<std::size_t>(source.channels));
    ffmpeg::SwrConverterFactory factory;
    const auto uncounted = allocations();
    const auto converter = factory.make({source.rate, source.channels}, 48000);
    if (allocations() == uncounted) throw std::runtime_error("this build does not count allocations");
    std::vector<float> mono;
    for (int i = 0; i < 100; ++i) converter->convert(stereo, mono);
    const auto buffers = static_cast<int>(seconds * source.rate / static_cast<double>(source.frames));
    const auto before = allocations();
    const Stopwatch watch;
    for (int i = 0; i < buffers; ++i) converter->convert(stereo, mono);
    const double cpu = watch.elapsed().cpu;
    const auto made = allocations() - before;
    std::printf("%-28s | %8.2f us a buffer | %7.3f ms a second of sound | %llu allocations in %d buffers\n",
                source.name, cpu * 1e6 / buffers, cpu * 1e3 / seconds, static_cast<unsigned long long>(made), buffers);
    return made == 0;
}

bool run(const Arguments& arguments) {
    const double seconds = arguments.isSmoke() ? 5 : arguments.number("--seconds", 600);
    bool isFree = true;
    for (const Source& source :
         {Source{"44.1 kHz mono, 512 frames", 44100, 1, 512}, Source{"16 kHz mono, 160 frames", 16000, 1, 160},
          Source{"48 kHz stereo, 480 frames", 48000, 2, 480}, Source{"96 kHz stereo, 1024 frames", 96000, 2, 1024}}) {
        isFree = measure(source, seconds) && isFree;
    }
    return isFree;
}

}  // namespace
}  // namespace tessivox::bench

int main(int count, char** values) {
    try {
        return tessivox::bench::run({count, values}) ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_convert: %s\n", error.what());
        return 1;
    }
}
