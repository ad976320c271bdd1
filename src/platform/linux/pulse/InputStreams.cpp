#include "platform/linux/pulse/InputStreams.h"

#include <algorithm>
#include <iterator>

namespace tessivox::pulse {
namespace {

const Source* find(const std::vector<Source>& sources, std::uint32_t index) {
    const auto found = std::ranges::find(sources, index, &Source::index);
    return found == sources.end() ? nullptr : &*found;
}

bool isProgramsSound(const SourceOutput& stream) {
    return stream.client != SourceOutput::kNone && stream.source != SourceOutput::kNone && !stream.isCorked &&
           !stream.takesPeaks && !stream.takesMonitor;
}

}  // namespace

std::vector<SourceOutput> microphoneStreams(const std::vector<SourceOutput>& streams,
                                            const std::vector<Source>& sources) {
    std::vector<SourceOutput> result;
    std::ranges::copy_if(streams, std::back_inserter(result), [&](const SourceOutput& stream) {
        if (!isProgramsSound(stream)) return false;
        const auto* source = find(sources, stream.source);
        return source && !source->isMonitor;
    });
    return result;
}

bool isSourceMissing(const std::vector<SourceOutput>& streams, const std::vector<Source>& sources) {
    return std::ranges::any_of(
        streams, [&](const SourceOutput& stream) { return isProgramsSound(stream) && !find(sources, stream.source); });
}

Declaration joined(const Declaration& stream, const Declaration& client) {
    Declaration result;
    result.pid = stream.pid ? stream.pid : client.pid;
    // Only the connection comes with the kernel's and the portal's word; a stream could merely repeat or forge it.
    result.securityPID = client.securityPID;
    result.portalID = client.portalID;
    result.binary = stream.binary.empty() ? client.binary : stream.binary;
    result.applicationID = stream.applicationID.empty() ? client.applicationID : stream.applicationID;
    result.applicationName = stream.applicationName.empty() ? client.applicationName : stream.applicationName;
    return result;
}

}  // namespace tessivox::pulse
