#include "SpokenDialogue.h"

#include <array>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "Measure.h"

namespace tessivox::bench {
namespace {

constexpr float kLoudness = 0.5F;
/// With so much of it ffmpeg's fast coder takes 0.43 of its default's time for an upload copy; 0.21 without any, and
/// 0.70 if the voices are five times as soft.
constexpr float kRoomNoise = 0.003F;
constexpr std::size_t kPause = SpokenDialogue::kRate / 2;
constexpr std::array kVoices{"en-us", "en-gb+f3"};
constexpr std::array kTurns{
    "Good morning everybody. Thank you for coming to the meeting about the new office.",
    "Good morning. I have looked at the three buildings, and the second one is the best for our team.",
    "How many people can work there, and how much does it cost every month?",
    "There is room for forty people. The rent is four thousand dollars a month, and the heating is included.",
    "That is less than I expected. When can we move in?",
    "The owner told me that the building will be ready in the first week of September.",
    "We need to give notice for the old office before the end of June. Who will write the letter?",
    "I will write the letter and send it to the owner by Friday. You should read it before I send it.",
};

std::vector<float> spoken(const std::string& voice, const std::string& text) {
    const TemporaryFolder folder;
    const auto said = folder.path() / "said.wav", samples = folder.path() / "said.f32";
    runProgram({"espeak-ng", "-v", voice, "-w", said, text});
    runProgram({"ffmpeg", "-v", "error", "-i", said, "-ac", "1", "-ar", std::to_string(SpokenDialogue::kRate), "-f",
                "f32le", samples});
    std::vector<float> all(std::filesystem::file_size(samples) / sizeof(float));
    std::ifstream(samples, std::ios::binary)
        .read(reinterpret_cast<char*>(all.data()), static_cast<std::streamsize>(all.size() * sizeof(float)));
    return all;
}

}  // namespace

SpokenDialogue::SpokenDialogue() {
    std::minstd_rand random(1);
    std::uniform_real_distribution<float> noise(-kRoomNoise, kRoomNoise);
    for (std::size_t turn = 0; turn < kTurns.size(); ++turn) {
        auto voice = spoken(kVoices[turn % 2], kTurns[turn]);
        voice.resize(voice.size() + kPause);
        for (const float sample : voice) {
            for (std::size_t side = 0; side < 2; ++side)
                tape_.push_back((side == turn % 2 ? kLoudness * sample : 0) + noise(random));
        }
    }
}

void SpokenDialogue::next(std::size_t frames, std::vector<float>& stereo) {
    stereo.clear();
    stereo.reserve(frames * 2);
    for (; stereo.size() < frames * 2; at_ = (at_ + 1) % tape_.size()) stereo.push_back(tape_[at_]);
}

}  // namespace tessivox::bench
