// Intervals in units.
#include "Tessarin/dates/Double+Time.h"

#include <cmath>
#include <gtest/gtest.h>

namespace Tessarin {
namespace {

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
