#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "audio/ports/PacketEncoder.h"
#include "base/TaskQueue.h"

namespace tessivox::audio {

/// What a whole temporary file is encoded with; all of it outlives the encoding.
struct EncodingTools {
    base::Files& files;
    AudioEncoderFactory& encoders;
    /// Queues that share in long files as far as they have time. Without any, one thread does it all.
    std::vector<base::TaskQueue*> helpers;
    /// Files of less than two of these are not divided. Two minutes at 48 kHz take under a second, and their packets
    /// 2 MB at the middle quality.
    std::uint64_t segmentFrames = 5625 * PacketEncoder::kPacketFrames;
};

/// Tells the share of the work done, from 0 to 1. Called on the thread that asked for the encoding.
using EncodingProgress = std::function<void(double)>;

}  // namespace tessivox::audio
