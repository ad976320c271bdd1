#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tessivox::testing {

/// A new folder for sound files, removed with what is in it. Throws std::runtime_error if a file cannot be made.
class MediaFolder {
public:
    MediaFolder();
    MediaFolder(const MediaFolder&) = delete;
    MediaFolder& operator=(const MediaFolder&) = delete;
    ~MediaFolder();

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path write(const std::string& name, std::string_view contents) const;
    std::string read(const std::string& name) const;
    /// A WAV file of 32-bit floats.
    std::filesystem::path wave(const std::string& name, std::span<const float> interleaved, int sampleRate,
                               int channels) const;
    /// Another form of a file in the folder, by the ffmpeg program; `options` stand before the new name.
    std::filesystem::path converted(const std::string& from, const std::string& to,
                                    const std::string& options = "") const;
    std::vector<std::string> names() const;

private:
    std::filesystem::path path_;
};

/// Voices and noise that are never the same again, in any number of channels that differ.
std::vector<float> speechLike(std::size_t frames, int channels = 2, int sampleRate = 48000);

/// How far `actual` stands above its difference from `expected`, in decibels, over the frames both have.
double signalToNoise(std::span<const float> expected, std::span<const float> actual);

}  // namespace tessivox::testing
