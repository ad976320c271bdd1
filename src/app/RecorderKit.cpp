#include "app/RecorderKit.h"

#include "audio/RecordingFiles.h"

namespace tessivox::app {

RecorderKit::RecorderKit(const Surroundings& around)
    : incompleteFolder_(audio::incompleteFolder(around.folders)),
      devices_(around.server),
      captures_(around.loop, around.server.address()),
      levels_(around.loop),
      writer_(around.loop, around.files, converters_, encoders_, incompleteFolder_),
      recorder_({around.loop, around.files, localTime_, around.settings, around.state, devices_, captures_, levels_},
                writer_, incompleteFolder_) {}

}  // namespace tessivox::app
