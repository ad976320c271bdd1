#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stop_token>

#include "audio/CafFile.h"
#include "audio/EncodingTools.h"
#include "audio/TrackEncoder.h"

namespace tessivox::audio {

/// Encodes a track anew from its CAF, a long one by several threads; null if that holds no frames. Throws base::Error,
/// also when stopped.
std::unique_ptr<TrackEncoder> encodeFromTemporary(const EncodingTools& tools, const RecordingFiles& names, Track track,
                                                  const EncodingSettings& settings, const EncodingProgress& progress,
                                                  const std::stop_token& stop);

/// Reads the frames from `begin` to before `end` and hands them on in pieces of about a second. Throws base::Error if
/// they are not all there, and when stopped.
void forEachPiece(CafReader& reader, std::uint64_t begin, std::uint64_t end, const std::stop_token& stop,
                  const std::function<void(std::span<const float>)>& work);

[[noreturn]] void throwInterrupted();

}  // namespace tessivox::audio
