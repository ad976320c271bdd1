#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "base/SharedDocument.h"
#include "base/Uuid.h"
#include "base/ports/Files.h"

namespace tessivox::backend {

/// The tokens that devices were given, in a file. Any thread.
class DeviceTokens {
public:
    static constexpr std::size_t kMostDevices = 1000;
    static constexpr std::size_t kLongestName = 128;  ///< bytes

    /// Throws base::FileError if the file is there and cannot be read.
    DeviceTokens(base::Files& files, base::Files::Path file, base::RandomBytes random);

    /// The device's token, which it gets now if it has none. Absent if there are too many devices, or that is no name.
    /// Throws base::FileError.
    std::optional<std::string> token(const std::string& device);
    bool isToken(const std::string& device, std::string_view token) const;

private:
    mutable std::mutex mutex_;
    base::SharedDocument document_;
    const base::RandomBytes random_;
    std::map<std::string, std::string> tokens_;
};

}  // namespace tessivox::backend
