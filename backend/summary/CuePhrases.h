#pragma once

#include <string_view>

namespace tessivox::backend {

/// What the words of a sentence, in English, tell of its weight in a meeting. No judgement of any other language.
struct Cues {
    double point = 0;   ///< to be added to its rank: above 0 for decisions, plans and figures, below 0 for chatter
    double action = 0;  ///< how much it sounds like a task that somebody takes or gives; 0 if it does not
    bool isQuestion = false;
    bool isPersonal = false;  ///< says "I", which makes little sense without a speaker's name
};

Cues cuesOf(std::string_view sentence);

}  // namespace tessivox::backend
