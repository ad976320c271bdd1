#include "support/MediaFolder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace tessivox::testing {
namespace {

std::string little(std::uint64_t value, int width) {
    std::string bytes;
    for (int i = 0; i < width; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
}

std::string quoted(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

}  // namespace

MediaFolder::MediaFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tessivox-media-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    path_ = name;
}

MediaFolder::~MediaFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path MediaFolder::write(const std::string& name, std::string_view contents) const {
    std::ofstream out(path_ / name, std::ios::binary);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!out.flush()) throw std::runtime_error(name + " could not be written");
    return path_ / name;
}

std::string MediaFolder::read(const std::string& name) const {
    std::ifstream in(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::filesystem::path MediaFolder::wave(const std::string& name, std::span<const float> interleaved, int sampleRate,
                                        int channels) const {
    const auto rate = static_cast<std::uint64_t>(sampleRate), count = static_cast<std::uint64_t>(channels);
    const auto size = interleaved.size_bytes();
    const std::string format = little(3, 2) + little(count, 2) + little(rate, 4) + little(rate * count * 4, 4) +
                               little(count * 4, 2) + little(32, 2);
    std::string file = "RIFF" + little(36 + size, 4) + "WAVEfmt " + little(16, 4) + format + "data" + little(size, 4);
    const auto header = file.size();
    file.resize(header + size);
    if (size > 0) std::memcpy(file.data() + header, interleaved.data(), size);
    return write(name, file);
}

std::filesystem::path MediaFolder::converted(const std::string& from, const std::string& to,
                                             const std::string& options) const {
    const auto command =
        "ffmpeg -nostdin -v error -y -i " + quoted(path_ / from) + " " + options + " " + quoted(path_ / to);
    if (std::system(command.c_str()) != 0) throw std::runtime_error("this failed: " + command);
    return path_ / to;
}

std::vector<std::string> MediaFolder::names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
}

std::vector<float> speechLike(std::size_t frames, int channels, int sampleRate) {
    std::minstd_rand random(7);
    std::vector<float> samples;
    samples.reserve(frames * static_cast<std::size_t>(channels));
    float filtered = 0;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const float noise = static_cast<float>(random()) / static_cast<float>(std::minstd_rand::max()) - 0.5F;
        filtered += 0.05F * (noise - filtered);
        const auto time = static_cast<double>(frame) / sampleRate;
        const auto voice =
            static_cast<float>(0.2 * std::sin(1000 * time + 40 * std::sin(3 * time)) * std::abs(std::sin(5 * time)));
        for (int channel = 0; channel < channels; ++channel) {
            const bool isEven = channel % 2 == 0;
            samples.push_back((isEven ? 1.0F : 0.3F) * voice + (isEven ? filtered : -0.5F * filtered));
        }
    }
    return samples;
}

double signalToNoise(std::span<const float> expected, std::span<const float> actual) {
    double signal = 0, noise = 1e-20;
    for (std::size_t index = 0; index < std::min(expected.size(), actual.size()); ++index) {
        signal += std::pow(expected[index], 2);
        noise += std::pow(actual[index] - expected[index], 2);
    }
    return 10 * std::log10(signal / noise);
}

}  // namespace tessivox::testing
