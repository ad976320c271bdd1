#pragma once

#include <string>
#include <vector>

#include "backend/Engine.h"

namespace tessivox::backend {

/// The transcript as its readers want it, an entry a line: "[mm:ss] Speaker A: text", "[hh:mm:ss] ..." from one hour
/// on. A reader takes what stands before the first colon for the speaker if it is short, so an utterance without a
/// speaker whose text holds a colon becomes "[mm:ss] : text". What one speaker says in a row is one entry of up to 30
/// s. Utterances without text are left out; line breaks and other control characters become blanks. Ends with a line
/// feed unless it is empty.
std::string transcriptText(const std::vector<Utterance>& utterances);

}  // namespace tessivox::backend
