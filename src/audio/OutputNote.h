#pragma once

#include <optional>

#include "audio/RecordingFiles.h"

namespace tessivox::audio {

/// Notes with a recording's temporary file, as the extended attribute `user.com.tessivox.output`, where the recording
/// is to be saved: outside of the recordings folder a recovery would not look. Where the file system keeps no
/// attributes it is not noted.
void noteOutput(base::Files& files, const RecordingFiles& names) noexcept;

/// The same recording's names in the folder that was noted; absent if none was, if that is the folder of `names`, or if
/// what stands there is not a path of this recording.
std::optional<RecordingFiles> notedOutput(const base::Files& files, const RecordingFiles& names);

}  // namespace tessivox::audio
