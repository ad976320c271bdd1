#pragma once

#include <chrono>

#include "base/ports/LocalTime.h"
#include "core/ports/FolderChooser.h"
#include "core/ports/LoginItem.h"

namespace tessivox::testing {

/// A user who lives at Greenwich.
struct UtcTime final : base::LocalTime {
    base::CivilTime civil(base::WallTime time) const override {
        const auto day = std::chrono::floor<std::chrono::days>(time);
        const std::chrono::year_month_day date(day);
        const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::seconds>(time - day));
        return {static_cast<int>(date.year()),
                static_cast<int>(static_cast<unsigned>(date.month())),
                static_cast<int>(static_cast<unsigned>(date.day())),
                static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count())};
    }
};

/// A user who picks no folder.
struct NoChooser final : core::FolderChooser {
    base::Task<std::optional<std::filesystem::path>> chooseFolder(std::string, std::string) override {
        co_return std::nullopt;
    }
};

/// A desktop without login items.
struct NoLoginItem final : core::LoginItem {
    void registerItem() override {}
    void unregisterItem() override {}
};

}  // namespace tessivox::testing
