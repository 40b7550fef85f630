#include "support/Time.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <time.h>

// Calendar arithmetic is done here rather than with timegm/gmtime_r so the
// results do not depend on the C library or the process's time zone.
namespace pelmora::Time {
namespace {

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's algorithm).
std::int64_t daysFromCivil(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

struct CivilDate {
    std::int64_t year;
    unsigned month;
    unsigned day;
};

CivilDate civilFromDays(std::int64_t days) {
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned shiftedMonth = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
    const unsigned month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    const std::int64_t year = static_cast<std::int64_t>(yearOfEra) + era * 400;
    return {month <= 2 ? year + 1 : year, month, day};
}

unsigned daysInMonth(std::int64_t year, unsigned month) {
    static constexpr unsigned lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : lengths[month - 1];
}

// Reads exactly `count` ASCII digits at `at`, advancing past them.
bool digits(std::string_view text, std::size_t& at, std::size_t count, unsigned& value) {
    if (at > text.size() || text.size() - at < count) {
        return false;
    }
    value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        char c = text[at + i];
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    at += count;
    return true;
}

bool literal(std::string_view text, std::size_t& at, char expected) {
    if (at >= text.size() || text[at] != expected) {
        return false;
    }
    ++at;
    return true;
}

constexpr std::int64_t secondsPerDay = 86400;
// 0000-01-01T00:00:00Z and 9999-12-31T23:59:59Z: the range four year digits can spell.
constexpr double earliest = -62167219200.0;
constexpr double latest = 253402300799.0;

} // namespace

double now() {
    struct timespec clock {};
    ::clock_gettime(CLOCK_REALTIME, &clock);
    return static_cast<double>(clock.tv_sec) + static_cast<double>(clock.tv_nsec) / 1e9;
}

std::optional<double> parseISO8601(std::string_view text) {
    std::size_t at = 0;
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!digits(text, at, 4, year) || !literal(text, at, '-') || !digits(text, at, 2, month) ||
        !literal(text, at, '-') || !digits(text, at, 2, day) || !literal(text, at, 'T') ||
        !digits(text, at, 2, hour) || !literal(text, at, ':') || !digits(text, at, 2, minute) ||
        !literal(text, at, ':') || !digits(text, at, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59) {
        return std::nullopt;
    }

    // Any number of fraction digits; those past the nanosecond cannot change a double.
    double fraction = 0;
    if (at < text.size() && text[at] == '.') {
        ++at;
        std::size_t first = at;
        std::int64_t numerator = 0, denominator = 1;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            if (at - first < 9) {
                numerator = numerator * 10 + (text[at] - '0');
                denominator *= 10;
            }
            ++at;
        }
        if (at == first) {
            return std::nullopt;
        }
        fraction = static_cast<double>(numerator) / static_cast<double>(denominator);
    }

    std::int64_t offsetSeconds = 0;
    if (at >= text.size()) {
        return std::nullopt; // a local time with no zone names no instant
    }
    if (text[at] == 'Z') {
        ++at;
    } else if (text[at] == '+' || text[at] == '-') {
        int sign = text[at] == '-' ? -1 : 1;
        ++at;
        unsigned offsetHours = 0, offsetMinutes = 0;
        if (!digits(text, at, 2, offsetHours)) {
            return std::nullopt;
        }
        literal(text, at, ':');
        if (!digits(text, at, 2, offsetMinutes) || offsetHours > 23 || offsetMinutes > 59) {
            return std::nullopt;
        }
        offsetSeconds = sign * static_cast<std::int64_t>(offsetHours * 3600 + offsetMinutes * 60);
    } else {
        return std::nullopt;
    }
    if (at != text.size()) {
        return std::nullopt;
    }

    std::int64_t seconds = daysFromCivil(year, month, day) * secondsPerDay + hour * 3600 +
                           minute * 60 + second - offsetSeconds;
    return static_cast<double>(seconds) + fraction;
}

std::string formatISO8601(double seconds) {
    // Out-of-range instants are pinned to the ends of the four-digit years.
    if (std::isnan(seconds)) {
        seconds = 0;
    }
    seconds = std::fmin(std::fmax(std::floor(seconds), earliest), latest);
    auto whole = static_cast<std::int64_t>(seconds);
    std::int64_t days = whole / secondsPerDay;
    std::int64_t rest = whole % secondsPerDay;
    if (rest < 0) {
        rest += secondsPerDay;
        --days;
    }
    CivilDate date = civilFromDays(days);
    char buffer[96]; // room for any int64 the compiler can imagine
    std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02uT%02lld:%02lld:%02lldZ",
                  static_cast<long long>(date.year), date.month, date.day,
                  static_cast<long long>(rest / 3600), static_cast<long long>(rest / 60 % 60),
                  static_cast<long long>(rest % 60));
    return buffer;
}

} // namespace pelmora::Time
