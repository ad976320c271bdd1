#pragma once

#include <string>
#include <vector>

#include "backend/Engine.h"

namespace tessivox::backend {

/// "Speaker A" for whoever speaks first, "Speaker B" for the next.
std::string speakerName(std::size_t speaker);

/// Names the speaker of each utterance by the voices in the sound, where the engine named none at all.
void labelSpeakers(const Sound& sound, std::vector<Utterance>& utterances);

}  // namespace tessivox::backend
