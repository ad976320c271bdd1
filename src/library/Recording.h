#pragma once

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "base/Units.h"

namespace tessivox::library {

/// The separate file of one of a recording's sources.
struct SubTrack {
    std::filesystem::path url;
    std::string label;  ///< "Microphone" or "System audio"

    bool operator==(const SubTrack&) const = default;
};

/// One entry of the library. Its stable key is the path.
struct Recording {
    std::string id;             ///< made anew at every scan
    std::filesystem::path url;  ///< of the main `.m4a`
    base::WallTime date;        ///< when the file was made, as the file system says
    double duration = 0;        ///< seconds
    std::string name;           ///< the file's name without extension, byte for byte
    std::vector<SubTrack> subTracks;

    bool operator==(const Recording&) const = default;
};

/// Members named like those above; paths as file URLs (RFC 8089), which keep every byte, dates as base::IsoTime writes
/// them.
void to_json(nlohmann::json& json, const SubTrack& track);
void to_json(nlohmann::json& json, const Recording& recording);

/// The text of a JSON value. Bytes of names that are not UTF-8 are replaced, so it never throws on them.
std::string jsonText(const nlohmann::json& json);

}  // namespace tessivox::library
