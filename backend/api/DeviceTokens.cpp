#include "backend/api/DeviceTokens.h"

#include <nlohmann/json.hpp>

#include "backend/api/ConstantTime.h"
#include "backend/jobs/Job.h"
#include "base/Log.h"
#include "base/Text.h"

namespace tessivox::backend {
namespace {

using nlohmann::json;

constexpr std::size_t kLargestDocument = 1 << 20;  // bytes

}  // namespace

DeviceTokens::DeviceTokens(base::Files& files, base::Files::Path file, base::RandomBytes random)
    : document_(files, std::move(file)), random_(std::move(random)) {
    if (!files.exists(document_.path())) return;
    const auto document = json::parse(files.readAll(document_.path(), kLargestDocument), nullptr, false);
    try {
        document.get_to(tokens_);
    } catch (const json::exception&) {
        base::log("devices.json is damaged and was moved to " + document_.keepAside().filename().string() + ".");
    }
}

std::optional<std::string> DeviceTokens::token(const std::string& device) {
    if (device.empty() || device.size() > kLongestName || !base::isUTF8(device)) return std::nullopt;
    const std::lock_guard lock(mutex_);
    if (const auto known = tokens_.find(device); known != tokens_.end()) return known->second;
    if (tokens_.size() >= kMostDevices) return std::nullopt;
    auto tokens = tokens_;
    tokens[device] = base::makeUuid(random_);
    document_.replace(dumped(tokens));
    tokens_ = std::move(tokens);
    return tokens_[device];
}

bool DeviceTokens::isToken(const std::string& device, std::string_view token) const {
    const std::lock_guard lock(mutex_);
    const auto known = tokens_.find(device);
    return known != tokens_.end() && isSame(known->second, token);
}

}  // namespace tessivox::backend
