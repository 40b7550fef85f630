#include "support/Time.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <time.h>

#include "support/Ascii.h"
#include "support/Integers.h"
#include "support/Scanner.h"

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

// Takes exactly `count` ASCII digits.
bool digits(Scanner& in, std::size_t count, unsigned& value) {
    const std::string_view run = Scanner(in.rest().substr(0, count)).takeWhile(Ascii::isDigit);
    if (run.size() != count) {
        return false;
    }
    in.skip(count);
    value = *parseInteger<unsigned>(run);
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
    Scanner in(text);
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!digits(in, 4, year) || !in.consume('-') || !digits(in, 2, month) || !in.consume('-') ||
        !digits(in, 2, day) || !in.consume('T') || !digits(in, 2, hour) || !in.consume(':') ||
        !digits(in, 2, minute) || !in.consume(':') || !digits(in, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59) {
        return std::nullopt;
    }

    // Any number of fraction digits; those past the nanosecond cannot change a double.
    double fraction = 0;
    if (in.consume('.')) {
        static constexpr double powersOfTen[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
        const std::string_view kept = in.takeWhile(Ascii::isDigit).substr(0, 9);
        if (kept.empty()) {
            return std::nullopt;
        }
        fraction =
            static_cast<double>(*parseInteger<std::int64_t>(kept)) / powersOfTen[kept.size()];
    }

    // A local time with no zone names no instant.
    std::int64_t offsetSeconds = 0;
    if (in.peek() == '+' || in.peek() == '-') {
        const int sign = in.consume() == '-' ? -1 : 1;
        unsigned offsetHours = 0, offsetMinutes = 0;
        if (!digits(in, 2, offsetHours)) {
            return std::nullopt;
        }
        in.consume(':');
        if (!digits(in, 2, offsetMinutes) || offsetHours > 23 || offsetMinutes > 59) {
            return std::nullopt;
        }
        offsetSeconds = sign * static_cast<std::int64_t>(offsetHours * 3600 + offsetMinutes * 60);
    } else if (!in.consume('Z')) {
        return std::nullopt;
    }
    if (!in.atEnd()) {
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
