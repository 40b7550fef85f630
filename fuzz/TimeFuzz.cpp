// Dates arrive as text from the agents' usage files and endpoints. Any bytes
// either are refused or give the instant that the C library's own calendar
// gives for the same fields; the instant, written back, reads as its whole
// second. And any instant at all, NaN and the infinities included, writes as
// a date that reads back.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "support/Time.h"

namespace {

namespace Time = pelmora::Time;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// 0000-01-01T00:00:00Z and 9999-12-31T23:59:59Z.
constexpr double earliest = -62167219200.0;
constexpr double latest = 253402300799.0;

bool digitsAt(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size()) {
        return false;
    }
    for (std::size_t index = at; index < at + count; ++index) {
        if (text[index] < '0' || text[index] > '9') {
            return false;
        }
    }
    return true;
}

char charAt(std::string_view text, std::size_t at) {
    return at < text.size() ? text[at] : '\0';
}

int numberAt(std::string_view text, std::size_t at, std::size_t count) {
    int value = 0;
    for (std::size_t index = at; index < at + count; ++index) {
        value = value * 10 + (text[index] - '0');
    }
    return value;
}

// The whole seconds of an accepted text, by timegm: the fields are in the
// fixed places that the format allows, and the offset follows the fraction.
double wholeSecondsByLibc(std::string_view text) {
    std::tm fields{};
    fields.tm_year = numberAt(text, 0, 4) - 1900;
    fields.tm_mon = numberAt(text, 5, 2) - 1;
    fields.tm_mday = numberAt(text, 8, 2);
    fields.tm_hour = numberAt(text, 11, 2);
    fields.tm_min = numberAt(text, 14, 2);
    fields.tm_sec = numberAt(text, 17, 2);
    // timegm normalises what it is given: the fields must come back unchanged.
    const std::tm given = fields;
    const time_t seconds = timegm(&fields);
    check(fields.tm_year == given.tm_year && fields.tm_mon == given.tm_mon &&
          fields.tm_mday == given.tm_mday && fields.tm_hour == given.tm_hour &&
          fields.tm_min == given.tm_min && fields.tm_sec == given.tm_sec);
    std::size_t at = 19;
    if (charAt(text, at) == '.') {
        ++at;
        check(digitsAt(text, at, 1));
        while (digitsAt(text, at, 1)) {
            ++at;
        }
    }
    long offset = 0;
    const char zone = charAt(text, at);
    if (zone == '+' || zone == '-') {
        check(digitsAt(text, at + 1, 2));
        const std::size_t minutesAt = charAt(text, at + 3) == ':' ? at + 4 : at + 3;
        check(digitsAt(text, minutesAt, 2) && minutesAt + 2 == text.size());
        offset = numberAt(text, at + 1, 2) * 3600L + numberAt(text, minutesAt, 2) * 60L;
        check(offset < 24 * 3600);
        offset = zone == '-' ? -offset : offset;
    } else {
        check(text.substr(at) == "Z");
    }
    return static_cast<double>(seconds - offset);
}

void parsed(std::string_view text) {
    const std::optional<double> instant = Time::parseISO8601(text);
    if (!instant) {
        return;
    }
    check(std::isfinite(*instant));
    check(digitsAt(text, 0, 4) && charAt(text, 4) == '-' && digitsAt(text, 5, 2) &&
          charAt(text, 7) == '-' && digitsAt(text, 8, 2) && charAt(text, 10) == 'T' &&
          digitsAt(text, 11, 2) && charAt(text, 13) == ':' && digitsAt(text, 14, 2) &&
          charAt(text, 16) == ':' && digitsAt(text, 17, 2));
    // The fraction can round the instant up to the next second, never further.
    const double whole = wholeSecondsByLibc(text);
    check(*instant >= whole && *instant <= whole + 1);

    const double second = std::floor(*instant);
    if (second < earliest || second > latest) {
        return; // an offset carried it past the years that four digits spell
    }
    const std::string written = Time::formatISO8601(*instant);
    check(written.size() == 20 && written.ends_with('Z'));
    check(Time::parseISO8601(written) == second);
}

// Whatever the double, the writer gives a date of four-digit years that
// reads back as the instant's whole second, pinned to that range.
void written(const std::uint8_t* data, std::size_t size) {
    double seconds = 0;
    std::memcpy(&seconds, data, std::min(size, sizeof seconds));
    const std::string text = Time::formatISO8601(seconds);
    const std::optional<double> back = Time::parseISO8601(text);
    check(text.size() == 20 && back.has_value());
    const double expected =
        std::isnan(seconds) ? 0 : std::fmin(std::fmax(std::floor(seconds), earliest), latest);
    check(*back == expected);
}

} // namespace

// The first byte chooses: a text to read (even) or the bytes of a double to
// write (odd).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    if (data[0] % 2 == 0) {
        parsed(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));
    } else {
        written(data + 1, size - 1);
    }
    return 0;
}
