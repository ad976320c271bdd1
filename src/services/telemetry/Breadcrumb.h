#pragma once

#include <map>
#include <string>
#include <string_view>

namespace tessivox::telemetry {

enum class BreadcrumbLevel { debug, info, warning, error, fatal };

using BreadcrumbData = std::map<std::string, std::string>;

/// Something that happened before a crash.
struct Breadcrumb {
    std::string message;
    std::string category;
    BreadcrumbLevel level = BreadcrumbLevel::info;
    BreadcrumbData data;
};

constexpr std::string_view levelName(BreadcrumbLevel level) {
    switch (level) {
        case BreadcrumbLevel::debug:
            return "debug";
        case BreadcrumbLevel::info:
            return "info";
        case BreadcrumbLevel::warning:
            return "warning";
        case BreadcrumbLevel::error:
            return "error";
        case BreadcrumbLevel::fatal:
            return "fatal";
    }
    return "";
}

}  // namespace tessivox::telemetry
