#include "support/Time.h"

#include <ctime>
#include <gtest/gtest.h>

namespace pelmora {
namespace {

TEST(Time, ParsesInstantsWithZoneAndFraction) {
    EXPECT_EQ(Time::parseISO8601("2026-11-22T10:15:30Z"), 1795342530.0);
    EXPECT_EQ(Time::parseISO8601("2026-11-22T12:15:30+02:00"), 1795342530.0);
    EXPECT_EQ(Time::parseISO8601("2026-11-22T04:45:30-0530"), 1795342530.0);
    EXPECT_EQ(Time::parseISO8601("2026-11-22T10:15:30.250000000000Z"), 1795342530.25);
    EXPECT_EQ(Time::parseISO8601("2024-02-29T23:59:59Z"), 1709251199.0);
    EXPECT_EQ(Time::parseISO8601("1969-07-20T20:17:40Z"), -14182940.0);
    const auto micro = Time::parseISO8601("2026-11-22T10:15:30.123456Z");
    ASSERT_TRUE(micro);
    EXPECT_NEAR(*micro, 1795342530.123456, 1e-6);

    for (const char* text : {"",
                             "2026-11-22",
                             "2026-11-22T10:15:30",
                             "2026-11-22 10:15:30Z",
                             "2026-11-22T10:15:30ZZ",
                             "2026-11-22T10:15:30.Z",
                             "2026-13-01T00:00:00Z",
                             "2026-00-01T00:00:00Z",
                             "2025-02-29T00:00:00Z",
                             "2026-04-31T00:00:00Z",
                             "2026-11-22T24:00:00Z",
                             "2026-11-22T10:60:00Z",
                             "2026-11-22T10:15:60Z",
                             "2026-11-22T10:15:30+2:00",
                             "2026-11-22T10:15:30+02",
                             "2026-11-22T10:15:30+24:00",
                             "26-11-22T10:15:30Z",
                             "2026-11-22T10:15:30z",
                             "\uFF12\uFF10\uFF12\uFF16-11-22T10:15:30Z",
                             "2026-11-22T10:15:30Z ",
                             " 2026-11-22T10:15:30Z"}) {
        EXPECT_FALSE(Time::parseISO8601(text)) << text;
    }
}

TEST(Time, FormatsUTCWithoutFraction) {
    EXPECT_EQ(Time::formatISO8601(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(Time::formatISO8601(1795342530.999), "2026-11-22T10:15:30Z");
    EXPECT_EQ(Time::formatISO8601(1709251199), "2024-02-29T23:59:59Z");
    EXPECT_EQ(Time::formatISO8601(-0.5), "1969-12-31T23:59:59Z");
    EXPECT_EQ(Time::formatISO8601(-14182940), "1969-07-20T20:17:40Z");
    EXPECT_EQ(Time::formatISO8601(1e300), "9999-12-31T23:59:59Z");
    for (double seconds : {951782400.0, 4102444800.0}) {
        EXPECT_EQ(Time::parseISO8601(Time::formatISO8601(seconds)), seconds);
    }

    const double before = static_cast<double>(std::time(nullptr));
    const double now = Time::now();
    EXPECT_GE(now, before);
    EXPECT_LT(now, before + 2);
}

} // namespace
} // namespace pelmora
