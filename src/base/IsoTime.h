#pragma once

#include <string_view>

#include "base/Units.h"

namespace tessivox::base {

/// A time in UTC as ISO 8601 writes it, with milliseconds: "2026-11-23T00:16:04.123Z". Neither allocates nor locks, so
/// that signal handlers may use it.
class IsoTime {
public:
    explicit IsoTime(WallTime time) noexcept {
        const auto day = std::chrono::floor<std::chrono::days>(time);
        const std::chrono::year_month_day date(day);
        const std::chrono::hh_mm_ss clock(std::chrono::floor<std::chrono::milliseconds>(time - day));
        put(0, 4, static_cast<int>(date.year()));
        put(5, 2, static_cast<int>(static_cast<unsigned>(date.month())));
        put(8, 2, static_cast<int>(static_cast<unsigned>(date.day())));
        put(11, 2, static_cast<int>(clock.hours().count()));
        put(14, 2, static_cast<int>(clock.minutes().count()));
        put(17, 2, static_cast<int>(clock.seconds().count()));
        put(20, 3, static_cast<int>(clock.subseconds().count()));
    }
    std::string_view view() const noexcept { return {text_, sizeof text_ - 1}; }

private:
    char text_[25] = "0000-00-00T00:00:00.000Z";

    void put(int at, int width, int number) noexcept {
        for (int place = at + width - 1; place >= at; --place, number /= 10) {
            text_[place] = static_cast<char>('0' + number % 10);
        }
    }
};

}  // namespace tessivox::base
