#pragma once

#include <cstddef>
#include <filesystem>

#include "backend/Engine.h"

namespace tessivox::backend {

/// An upload's sound as samples, in a file of its own while it is needed: hours of it would fill the memory.
class DecodedSound {
public:
    /// Decodes all of `upload` into the new file `samples` (0600, native 16-bit numbers), which takes the place of one
    /// that an earlier attempt left. Throws base::Error with a sentence if nothing can be decoded, if it lasts more
    /// than `longest` seconds, or if the disk is full.
    DecodedSound(const std::filesystem::path& upload, const std::filesystem::path& samples, double longest);
    DecodedSound(const DecodedSound&) = delete;
    DecodedSound& operator=(const DecodedSound&) = delete;
    /// Removes the file.
    ~DecodedSound();

    Sound sound() const;

private:
    std::filesystem::path samples_;
    std::size_t bytes_ = 0;
    const void* mapped_ = nullptr;

    void decode(const std::filesystem::path& upload, int file, double longest);
    void map(int file);
};

}  // namespace tessivox::backend
