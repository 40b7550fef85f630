#include "support/Time.h"

#include <ctime>
#include <gtest/gtest.h>

namespace pelmora {
namespace {

// Offsets, fractions and "Z" are read through the usage readers' dates too.
TEST(Time, ParsesInstantsWithZoneAndFraction) {
    EXPECT_EQ(Time::parseISO8601("2026-11-22T04:45:30.25-0530"), 1795342530.25);
    EXPECT_EQ(Time::parseISO8601("2024-02-29T23:59:59Z"), 1709251199.0);
    EXPECT_EQ(Time::parseISO8601("1969-07-20T20:17:40Z"), -14182940.0);
    EXPECT_NEAR(*Time::parseISO8601("2026-11-22T10:15:30.1234567891Z"), 1795342530.123456789, 1e-6);
    // Missing parts, out-of-range fields, loose spellings, and no zone.
    // clang-format off
    const char* const refused[] = {
        "", "2026-11-22", "2026-11-22T10:15:30", "2026-11-22 10:15:30Z", "2026-11-22T10:15:30ZZ",
        "2026-11-22T10:15:30.Z", "2026-13-01T00:00:00Z", "2025-02-29T00:00:00Z",
        "2026-04-31T00:00:00Z", "2026-11-22T24:00:00Z", "2026-11-22T10:15:60Z",
        "2026-11-22T10:15:30+2:00", "2026-11-22T10:15:30+24:00", " 2026-11-22T10:15:30Z",
        "2026-11-22T10:15:30z", "26-11-22T10:15:30Z", "\uFF12\uFF10\uFF12\uFF16-11-22T10:15:30Z"};
    // clang-format on
    for (const char* text : refused) {
        EXPECT_FALSE(Time::parseISO8601(text)) << text;
    }
}

TEST(Time, FormatsUTCWithoutFraction) {
    EXPECT_EQ(Time::formatISO8601(1795342530.999), "2026-11-22T10:15:30Z");
    EXPECT_EQ(Time::formatISO8601(-0.5), "1969-12-31T23:59:59Z");
    EXPECT_EQ(Time::formatISO8601(1e300), "9999-12-31T23:59:59Z");
    for (double seconds : {-14182940.0, 951782400.0, 1709251199.0, 4102444800.0}) {
        EXPECT_EQ(Time::parseISO8601(Time::formatISO8601(seconds)), seconds);
    }
    EXPECT_NEAR(Time::now(), static_cast<double>(std::time(nullptr)), 2);
}

} // namespace
} // namespace pelmora
