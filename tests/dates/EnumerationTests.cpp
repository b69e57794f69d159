// Days of the week, months, lengths of names, and intervals in units.
#include "Tessarin/dates/DateDayOfWeek.h"
#include "Tessarin/dates/DateMonth.h"
#include "Tessarin/dates/DateSymbolLength.h"
#include "Tessarin/dates/Double+Time.h"

#include <cmath>
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

constexpr auto largest = std::numeric_limits<std::int64_t>::max();

template <class T> void expectRawValues(std::int64_t first, std::int64_t last) {
    for (auto raw = first; raw <= last; ++raw) {
        ASSERT_TRUE(T::fromRawValue(raw)) << raw;
        EXPECT_EQ(T::fromRawValue(raw)->rawValue(), raw);
        EXPECT_EQ(std::hash<T>{}(*T::fromRawValue(raw)), static_cast<std::size_t>(raw - first)) << "the position";
    }
    for (auto const raw : {first - 1, last + 1, std::int64_t{-1}, largest, -largest}) EXPECT_FALSE(T::fromRawValue(raw)) << raw;
}

TEST(DateEnumerations, AreMadeOfTheirRawValuesAlone) {
    expectRawValues<DateSymbolLength>(0, 2);
    expectRawValues<DateDayOfWeek>(0, 6);
    expectRawValues<DateMonth>(1, 12);
    EXPECT_EQ(DateDayOfWeek::fromRawValue(3), DateDayOfWeek::Wednesday) << "from 0, Sunday first";
    EXPECT_EQ(DateMonth::fromRawValue(3), DateMonth::March) << "from 1";
}

TEST(DateEnumerations, StepsCloseTheCircleForwardsOnly) {
    EXPECT_EQ(DateDayOfWeek::Saturday.nextDay(), DateDayOfWeek::Sunday);
    EXPECT_EQ(DateDayOfWeek::Monday.increment(13), DateDayOfWeek::Sunday);
    EXPECT_EQ(DateDayOfWeek::Saturday.increment(-6), DateDayOfWeek::Sunday);
    EXPECT_EQ(DateMonth::December.nextMonth(), DateMonth::January);
    EXPECT_EQ(DateMonth::March.increment(10), DateMonth::January);
    EXPECT_EQ(DateMonth::December.increment(-11), DateMonth::January);
    EXPECT_EQ(DateDayOfWeek::Monday.increment(-8), DateDayOfWeek::Sunday) << "-7 leaves no remainder";
    EXPECT_DEATH(DateDayOfWeek::Sunday.increment(-1), "DateDayOfWeek.increment\\(-1\\): there is no such position\n");
    EXPECT_DEATH(DateMonth::January.increment(-1), "DateMonth.increment\\(-1\\)");
    EXPECT_DEATH(DateMonth::February.increment(largest), "DateMonth.increment\\(9223372036854775807\\)");
}

TEST(DoubleTime, TotalsAreTruncatedTowardZero) {
    EXPECT_EQ(Double::days(90'000), 1);
    EXPECT_EQ(Double::hours(90'000), 25);
    EXPECT_EQ(Double::minutes(-90.0), -1);
    EXPECT_EQ(Double::days(86'399.9), 0);
    EXPECT_EQ(Double::seconds(-0.9), 0);
    EXPECT_EQ(Double::seconds(-0x1p63), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Double::minutes(0x1p63), 153'722'867'280'912'928) << "fits after the division";
    EXPECT_DEATH(Double::seconds(0x1p63), "Double::seconds: 9.2[0-9e+]+ is no 64-bit integer\n");
    EXPECT_DEATH(Double::days(NAN), "Double::days: nan is no");
    EXPECT_DEATH(Double::hours(-INFINITY), "Double::hours: -inf is no");
}

} // namespace
} // namespace Tessarin
