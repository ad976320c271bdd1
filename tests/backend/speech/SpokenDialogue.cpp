#include "SpokenDialogue.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <random>
#include <sstream>
#include <stdexcept>

namespace tessivox::testing {
namespace {

namespace fs = std::filesystem;
constexpr double kRate = 16000;
constexpr std::size_t kStep = 160;

const std::array<std::string, 11> kMeeting = {
    "Good morning everybody. Thank you for coming to the meeting about the new office.",
    "Good morning. I have looked at the three buildings, and the second one is the best for our team.",
    "How many people can work there, and how much does it cost every month?",
    "There is room for forty people. The rent is four thousand dollars a month, and the heating is included.",
    "That is less than I expected. When can we move in?",
    "The owner told me that the building will be ready in the first week of September.",
    "We need to give notice for the old office before the end of June. Who will write the letter?",
    "I will write the letter and send it to the owner by Friday. You should read it before I send it.",
    "Please do. We should also ask the movers for a price, because last time they were very expensive.",
    "My brother knows a small company that moved a library last year. I can call them tomorrow afternoon.",
    "Very good. Let us meet again on Monday and make the final decision. Thank you and have a nice day.",
};

class Scratch {
public:
    Scratch() {
        std::string pattern = fs::temp_directory_path() / "tessivox-speech-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
        folder_ = pattern;
    }
    ~Scratch() { fs::remove_all(folder_); }
    std::string path(const std::string& name) const { return folder_ / name; }

private:
    fs::path folder_;
};

void run(const std::string& command) {
    if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Samples samplesOf(const std::string& bytes) {
    Samples samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

/// What flite writes is a header of 44 bytes and the samples.
Samples spoken(const Line& line, const Scratch& scratch) {
    const std::string file = scratch.path("line.wav");
    run("flite -voice " + line.voice + " -t '" + line.text + "' " + file);
    Samples samples = samplesOf(bytesOf(file).substr(44));
    const auto loud = [](std::int16_t sample) { return std::abs(sample) > 200; };
    samples.erase(std::find_if(samples.rbegin(), samples.rend(), loud).base(), samples.end());
    samples.erase(samples.begin(), std::find_if(samples.begin(), samples.end(), loud));
    return samples;
}

double power(std::span<const std::int16_t> samples) {
    double sum = 0;
    for (const std::int16_t sample : samples) sum += double(sample) * sample;
    return samples.empty() ? 0 : sum / double(samples.size());
}

/// Calls back with the index of a turn and the samples of each of its steps that can be heard.
template <typename Handler>
void forAudible(const SpokenDialogue& dialogue, Handler handler) {
    for (std::size_t turn = 0; turn < dialogue.turns.size(); ++turn)
        for (std::size_t at = dialogue.turns[turn].begin; at + kStep <= dialogue.turns[turn].end; at += kStep)
            if (power(std::span(dialogue.samples).subspan(at, kStep)) > 300 * 300) handler(turn, at + kStep / 2);
}

/// The index of the segment that a sample lies in, or the number of segments.
std::size_t segmentAt(const std::vector<backend::SpeechSegment>& segments, std::size_t sample) {
    const auto next =
        std::ranges::partition_point(segments, [&](const auto& segment) { return segment.end <= sample; });
    const bool inside = next != segments.end() && next->begin <= sample;
    return inside ? static_cast<std::size_t>(next - segments.begin()) : segments.size();
}

std::vector<std::string> words(const std::string& text) {
    std::string letters;
    for (const char c : text)
        if (c != '\'')
            letters += std::isalpha(static_cast<unsigned char>(c)) ? static_cast<char>(std::tolower(c)) : ' ';
    std::istringstream stream(letters);
    return {std::istream_iterator<std::string>(stream), {}};
}

Samples scaled(const std::vector<double>& values, double amplitude) {
    const double sum = std::inner_product(values.begin(), values.end(), values.begin(), 0.0);
    const double factor = amplitude / std::sqrt(sum / double(values.size()));
    Samples samples;
    for (const double value : values)
        samples.push_back(static_cast<std::int16_t>(std::clamp(value * factor, -32768.0, 32767.0)));
    return samples;
}

}  // namespace

SpokenDialogue SpokenDialogue::meeting(const std::vector<std::string>& voices, double gapSeconds) {
    const Scratch scratch;
    const auto gap = static_cast<std::size_t>(gapSeconds * kRate);
    SpokenDialogue dialogue;
    dialogue.samples.resize(gap);
    for (std::size_t i = 0; i < kMeeting.size(); ++i) {
        const Line line{voices[i % voices.size()], kMeeting[i]};
        const Samples speech = spoken(line, scratch);
        dialogue.turns.push_back({line, dialogue.samples.size(), dialogue.samples.size() + speech.size()});
        dialogue.samples.insert(dialogue.samples.end(), speech.begin(), speech.end());
        dialogue.samples.resize(dialogue.samples.size() + gap);
    }
    return dialogue;
}

std::string SpokenDialogue::text() const {
    std::string text;
    for (const Turn& turn : turns) text += turn.line.text + " ";
    return text;
}

SpokenDialogue SpokenDialogue::repeatedTo(double seconds) const {
    SpokenDialogue longer;
    while (double(longer.samples.size()) < seconds * kRate) {
        for (const Turn& turn : turns)
            longer.turns.push_back({turn.line, turn.begin + longer.samples.size(), turn.end + longer.samples.size()});
        longer.samples.insert(longer.samples.end(), samples.begin(), samples.end());
    }
    return longer;
}

Samples throughUploadCopy(const Samples& samples) {
    const Scratch scratch;
    std::ofstream(scratch.path("in"), std::ios::binary)
        .write(reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(samples.size() * 2));
    const std::string raw = " -f s16le -ar 16000 -ac 1 ";
    const std::string copy = scratch.path("copy.m4a");
    run("ffmpeg -v error" + raw + "-i " + scratch.path("in") + " -c:a aac -b:a 32k " + copy);
    run("ffmpeg -v error -i " + copy + raw + scratch.path("out"));
    return samplesOf(bytesOf(scratch.path("out")));
}

Samples whiteNoise(std::size_t length, double amplitude) {
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    std::vector<double> values(length);
    for (double& value : values) value = normal(random);
    return scaled(values, amplitude);
}

Samples brownNoise(std::size_t length, double amplitude) {
    std::mt19937 random(2);
    std::normal_distribution<double> normal;
    std::vector<double> values(length);
    double sum = 0;
    for (double& value : values) value = sum = 0.998 * sum + normal(random);
    return scaled(values, amplitude);
}

Samples withNoise(const Samples& speech, const Samples& noise, double decibels) {
    const double factor = std::sqrt(power(speech) / power(noise) / std::pow(10, decibels / 10));
    Samples mixed(speech.size());
    for (std::size_t i = 0; i < mixed.size(); ++i)
        mixed[i] =
            static_cast<std::int16_t>(std::clamp(speech[i] + factor * noise[i % noise.size()], -32768.0, 32767.0));
    return mixed;
}

double rightlyAttributed(const SpokenDialogue& dialogue, const std::vector<backend::SpeakerTurn>& turns) {
    std::vector<backend::SpeechSegment> segments;
    for (const backend::SpeakerTurn& turn : turns) segments.push_back(turn.segment);
    std::map<std::size_t, std::map<std::string, int>> heard;
    int all = 0;
    forAudible(dialogue, [&](std::size_t turn, std::size_t sample) {
        ++all;
        const std::size_t segment = segmentAt(segments, sample);
        if (segment < segments.size()) ++heard[turns[segment].speaker][dialogue.turns[turn].line.voice];
    });
    int right = 0;
    for (const auto& [speaker, voices] : heard)
        right += std::ranges::max_element(voices, {}, [](const auto& entry) { return entry.second; })->second;
    return double(right) / all;
}

double found(const SpokenDialogue& dialogue, const std::vector<backend::SpeechSegment>& segments) {
    int all = 0, inside = 0;
    forAudible(dialogue, [&](std::size_t, std::size_t sample) {
        ++all;
        inside += segmentAt(segments, sample) < segments.size();
    });
    return double(inside) / all;
}

double foundInVain(const SpokenDialogue& dialogue, const std::vector<backend::SpeechSegment>& segments) {
    const std::size_t margin = static_cast<std::size_t>(0.4 * kRate);
    std::size_t vain = 0;
    for (const backend::SpeechSegment& segment : segments)
        for (std::size_t at = segment.begin; at < segment.end; at += kStep)
            vain += std::ranges::none_of(
                dialogue.turns, [&](const Turn& turn) { return at + margin >= turn.begin && at < turn.end + margin; });
    return double(vain * kStep) / kRate;
}

double wordErrorRate(const std::string& said, const std::string& heard) {
    const std::vector<std::string> wanted = words(said), got = words(heard);
    std::vector<std::size_t> costs(got.size() + 1);
    std::iota(costs.begin(), costs.end(), std::size_t{0});
    for (std::size_t row = 0; row < wanted.size(); ++row) {
        std::size_t diagonal = costs[0]++;
        for (std::size_t column = 0; column < got.size(); ++column) {
            const std::size_t change = diagonal + (wanted[row] != got[column]);
            diagonal = costs[column + 1];
            costs[column + 1] = std::min({change, diagonal + 1, costs[column] + 1});
        }
    }
    return double(costs.back()) / double(wanted.size());
}

}  // namespace tessivox::testing
