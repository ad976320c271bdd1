#include "backend/speech/PocketsphinxEngine.h"

#include <algorithm>
#include <utility>

#include "backend/speech/LabelSpeakers.h"
#include "backend/speech/ParallelWork.h"
#include "backend/speech/PocketsphinxDecoder.h"
#include "backend/speech/SentenceCase.h"
#include "backend/speech/Speakers.h"
#include "backend/speech/SpeechDetector.h"

namespace tessivox::backend {
namespace {

constexpr double kDetected = 0.02;  ///< part of the work that precedes the recognition

/// What was recognised of each turn.
std::vector<std::string> recognise(const Sound& sound, const std::vector<SpeakerTurn>& turns,
                                   const std::filesystem::path& model, const Progress& progress) {
    std::vector<std::string> texts(turns.size());
    std::size_t all = 0, done = 0;
    for (const SpeakerTurn& turn : turns) all += turn.segment.length();
    const auto makeWorker = [&] {
        auto decoder = std::make_shared<PocketsphinxDecoder>(model);
        return [&, decoder](std::size_t index) {
            texts[index] = sentenceCase(decoder->words(turns[index].segment.of(sound.samples)));
        };
    };
    const auto onDone = [&](std::size_t index) {
        done += turns[index].segment.length();
        progress(kDetected + (1 - kDetected) * double(done) / double(all));
    };
    workInParallel(turns.size(), makeWorker, onDone);
    return texts;
}

}  // namespace

PocketsphinxEngine::PocketsphinxEngine(std::filesystem::path model) : model_(std::move(model)) {
    PocketsphinxDecoder::checkModel(model_);
}

std::vector<Utterance> PocketsphinxEngine::transcribe(const Sound& sound, const Progress& progress) {
    const std::vector<SpeakerTurn> turns = tellSpeakersApart(sound.samples, detectSpeech(sound.samples));
    progress(kDetected);
    const std::vector<std::string> texts = recognise(sound, turns, model_, progress);
    std::vector<Utterance> utterances;
    for (std::size_t i = 0; i < turns.size(); ++i)
        if (!texts[i].empty())
            utterances.push_back({double(turns[i].segment.begin) / Sound::kSampleRate,
                                  double(turns[i].segment.end) / Sound::kSampleRate, texts[i],
                                  speakerName(turns[i].speaker)});
    return utterances;
}

}  // namespace tessivox::backend
