#include "backend/engines/OpenAIEngine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <thread>
#include <utility>

#include "backend/engines/CaptionFormats.h"
#include "backend/engines/EngineError.h"
#include "backend/engines/QuietCuts.h"
#include "backend/engines/Utf8.h"
#include "backend/engines/WavFile.h"
#include "base/Text.h"
#include "platform/linux/posix/RandomBytes.h"

namespace tessivox::backend {
namespace {

/// Services invent words where there is nothing to hear: below this no sample counts as sound, -60 dB.
constexpr int kSilence = 32;
constexpr double kCutBack = 60;  // seconds before a piece's end within which a quiet place is looked for

std::string randomHex() {
    std::array<std::byte, 16> bytes{};
    posix::fillRandom(bytes);
    std::string text;
    for (const auto byte : bytes) {
        text += "0123456789abcdef"[std::to_integer<unsigned>(byte >> 4U)];
        text += "0123456789abcdef"[std::to_integer<unsigned>(byte & std::byte{15})];
    }
    return text;
}

/// A body of multipart/form-data (RFC 7578).
class Form {
public:
    std::string contentType() const { return "multipart/form-data; boundary=" + boundary_; }

    void add(const std::string& name, const std::string& value) {
        if (!value.empty()) part("name=\"" + name + "\"\r\n\r\n", value);
    }
    void addSound(std::span<const std::int16_t> samples) {
        part("name=\"file\"; filename=\"sound.wav\"\r\nContent-Type: audio/wav\r\n\r\n", wavBytes(samples));
    }
    std::string taken() { return std::move(body_) + "--" + boundary_ + "--\r\n"; }

private:
    std::string boundary_ = "tessivox" + randomHex();
    std::string body_;

    void part(const std::string& head, const std::string& value) {
        body_ += "--" + boundary_ + "\r\nContent-Disposition: form-data; " + head + value + "\r\n";
    }
};

bool isSilent(std::span<const std::int16_t> samples) {
    return std::ranges::all_of(samples, [](int sample) { return std::abs(sample) < kSilence; });
}

bool mayPass(const PostAnswer& answer) { return answer.status == 0 || answer.status == 429 || answer.status >= 500; }

}  // namespace

OpenAIEngine::OpenAIEngine(OpenAISettings settings)
    : settings_(std::move(settings)), endpoint_(settings_.url, "the speech service") {
    checkKey(settings_.key, OpenAISettings::kKeyVariable);
}

std::string OpenAIEngine::name() const { return briefLine(settings_.model, 80); }

std::vector<Utterance> OpenAIEngine::transcribe(const Sound& sound, const Progress& progress) {
    const auto samplesIn = [](double seconds) { return static_cast<std::size_t>(seconds * Sound::kSampleRate); };
    const auto most = samplesIn(std::clamp(settings_.secondsPerRequest, 1.0, 600.0));
    std::vector<Utterance> utterances;
    std::size_t done = 0;
    for (const auto piece : cutAtQuietPlaces(sound.samples, most, std::min(most / 2, samplesIn(kCutBack)))) {
        const auto offset = static_cast<double>(done) / Sound::kSampleRate;
        if (!isSilent(piece)) {
            for (auto& utterance : parseCaptions(answerFor(piece), Sound{piece}.seconds())) {
                utterance.start += offset;
                utterance.end += offset;
                utterances.push_back(std::move(utterance));
            }
        }
        done += piece.size();
        if (progress) progress(static_cast<double>(done) / static_cast<double>(sound.samples.size()));
    }
    return utterances;
}

std::string OpenAIEngine::answerFor(std::span<const std::int16_t> samples) const {
    Form form;
    form.add("model", settings_.model);
    form.add("response_format", settings_.responseFormat);
    form.add("language", settings_.language);
    form.addSound(samples);
    const auto type = form.contentType();
    auto answer = tryOften(type, form.taken());
    if (answer.status != 200) throw EngineError(failureOf(answer));
    // A page for people, say of a portal, is no transcript.
    if (!base::trimmed(answer.body).starts_with('{')) {
        throw EngineError(endpoint_.origin() + " did not answer with a transcript. Check the address.");
    }
    return std::move(answer.body);
}

PostAnswer OpenAIEngine::tryOften(const std::string& contentType, const std::string& body) const {
    auto pause = settings_.pauses.begin();
    while (true) {
        auto answer = post(endpoint_, "/audio/transcriptions", settings_.key, contentType, body, settings_.limits);
        if (!mayPass(answer) || pause == settings_.pauses.end()) return answer;
        std::this_thread::sleep_for(*pause++);
    }
}

std::string OpenAIEngine::failureOf(const PostAnswer& answer) const {
    const auto& origin = endpoint_.origin();
    const auto words = messageOf(answer, settings_.key);
    const auto itSays = words.empty() ? std::string(".") : ": " + words;
    const auto status = std::to_string(answer.status);
    switch (answer.status) {
        case 0:
            return answer.failure;
        case 401:
        case 403:
            return origin + " refused the key. Check the variable " + OpenAISettings::kKeyVariable + ".";
        case 404:
            return origin + " has no such service or model. Check the address and the model's name" + itSays;
        case 413:
            return origin + " takes no sound of this size. Choose shorter pieces" + itSays;
        case 429:
            return origin + " is busy, or your limit there is used up. Try again later" + itSays;
        default:
            break;
    }
    if (answer.status >= 500) return origin + " has a fault (" + status + "). Try again later" + itSays;
    if (answer.status >= 300 && answer.status < 400) {
        return origin + " sends its visitors elsewhere (" + status + "). Give the address that it names.";
    }
    return origin + " did not accept the sound (" + status + ")" + itSays;
}

}  // namespace tessivox::backend
