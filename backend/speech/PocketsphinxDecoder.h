#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

struct ps_decoder_s;

namespace tessivox::backend {

/// One decoder of the pocketsphinx library, some 100 MB. One thread at a time. What it hears in a stretch of speech
/// does not depend on what it heard before.
class PocketsphinxDecoder {
public:
    /// Takes half a second and more. Throws base::Error with a sentence if the model is missing or cannot be read.
    explicit PocketsphinxDecoder(const std::filesystem::path& model);

    /// Words in lower case with a blank between them, as the model's dictionary spells them. 16 kHz.
    std::string words(std::span<const std::int16_t> speech);

    /// Throws base::Error with a sentence if there is no such model.
    static void checkModel(const std::filesystem::path& model);

private:
    struct Free {
        void operator()(ps_decoder_s* decoder) const;
    };
    std::unique_ptr<ps_decoder_s, Free> decoder_;
};

}  // namespace tessivox::backend
