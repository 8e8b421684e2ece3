// A clock that stands until the test moves it, in a zone with daylight-saving time. Unless the test
// says otherwise that is eight hours behind UTC, seven from the second Sunday of March, 2:00, to
// the first one of November, 2:00.
//
// Local times are written "2026-03-08 09:00:00", with a "d" after them in daylight-saving time.
#pragma once

#include <atomic>
#include <chrono>
#include <iomanip>
#include <sstream>
#include <string>

#include "scheduler/scheduleclock.h"

namespace dorvo::test {

// A change of the clocks, by the clock on the wall before it: the week's day of a month (5 is the
// last), so many minutes after its midnight.
struct ClockChange {
    unsigned month;
    unsigned week;
    unsigned day;  // 0 Sunday
    int minute;
};

struct ZoneRules {
    int standard = -8 * 60;  // minutes ahead of UTC
    int saving = 60;         // minutes, 0 for no daylight-saving time
    ClockChange on{3, 2, 0, 120};
    ClockChange back{11, 1, 0, 120};
};

class TestZone : public ScheduleClock {
public:
    explicit TestZone(bool daylightSaving = true) { rules_.saving *= daylightSaving ? 1 : 0; }
    explicit TestZone(const ZoneRules& rules) : rules_(rules) {}

    int64_t now() const override { return broken ? -1 : time.load(); }
    bool local(int64_t instant, std::tm& parts) const override {
        if (broken || instant < 0 || instant > lastInstant) {
            return false;
        }
        const bool daylight = inDaylight(instant);
        const int64_t wall = instant + standard() + (daylight ? saving() : 0);
        const std::chrono::sys_seconds seconds{std::chrono::seconds(wall)};
        const auto day = std::chrono::floor<std::chrono::days>(seconds);
        const std::chrono::year_month_day date(day);
        const std::chrono::hh_mm_ss clockTime(seconds - day);
        parts = {};
        parts.tm_year = static_cast<int>(date.year()) - 1900;
        parts.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
        parts.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
        parts.tm_hour = static_cast<int>(clockTime.hours().count());
        parts.tm_min = static_cast<int>(clockTime.minutes().count());
        parts.tm_sec = static_cast<int>(clockTime.seconds().count());
        parts.tm_wday = static_cast<int>(std::chrono::weekday(day).c_encoding());
        parts.tm_isdst = daylight ? 1 : 0;
        return true;
    }
    int64_t instant(std::tm parts) const override {
        const int month = parts.tm_mon + 12;
        const std::chrono::sys_days first =
            std::chrono::year(parts.tm_year + 1899 + month / 12) /
            std::chrono::month(static_cast<unsigned>(month % 12 + 1)) / 1;
        const int64_t day = first.time_since_epoch().count() + parts.tm_mday - 1;
        const int64_t wall =
            day * 24 * hour + parts.tm_hour * hour + parts.tm_min * minute + parts.tm_sec;
        int64_t found = wall - standard();
        // As the C runtime does it.
        if (parts.tm_isdst > 0 || (parts.tm_isdst < 0 && inDaylight(found))) {
            found -= saving();
        }
        return broken || found < 0 || found > lastInstant ? -1 : found;
    }

    // The instant of a local time; a "d" tells the two hours of the autumn apart.
    int64_t at(const std::string& text) const {
        std::tm parts{};
        std::istringstream in(text);
        in >> std::get_time(&parts, format);
        parts.tm_isdst = text.back() == 'd' ? 1 : 0;
        return in.fail() ? -1 : instant(parts);
    }
    std::string text(int64_t instant) const {
        std::tm parts{};
        if (!local(instant, parts)) {
            return "no time";
        }
        std::ostringstream out;
        out << std::put_time(&parts, format) << (parts.tm_isdst != 0 ? "d" : "");
        return out.str();
    }

    std::atomic<int64_t> time{0};
    bool broken = false;  // every question fails

private:
    static constexpr const char* format = "%Y-%m-%d %H:%M:%S";
    static constexpr int64_t minute = 60;
    static constexpr int64_t hour = 3600;
    static constexpr int64_t lastInstant = 32'535'215'999;  // the year 3000

    int64_t standard() const { return rules_.standard * minute; }
    int64_t saving() const { return rules_.saving * minute; }

    static std::chrono::sys_seconds changeOf(std::chrono::year year, const ClockChange& change) {
        using namespace std::chrono;
        const weekday day(change.day);
        const month ofYear(change.month);
        const sys_days date = change.week == 5 ? sys_days(year / ofYear / day[last])
                                               : sys_days(year / ofYear / day[change.week]);
        return date + minutes(change.minute);
    }
    bool inDaylight(int64_t instant) const {
        using namespace std::chrono;
        const sys_seconds time{seconds(instant + standard())};
        const year thisYear = year_month_day(floor<days>(time)).year();
        const sys_seconds on = changeOf(thisYear, rules_.on);
        const sys_seconds back = changeOf(thisYear, rules_.back) - seconds(saving());
        if (rules_.saving == 0) {
            return false;
        }
        return on < back ? time >= on && time < back : time >= on || time < back;
    }

    ZoneRules rules_;
};

}  // namespace dorvo::test
