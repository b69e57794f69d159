#include "Tessarin/platform/runtime/NumberText.h"

#include <gtest/gtest.h>
#include <limits>

namespace Tessarin {
namespace {

TEST(NumberText, IsTheShortestThatReadsBack) {
    using Limits = std::numeric_limits<double>;
    struct Row {
        double value;
        char const* text;
    };
    for (auto const& [value, text] : {Row{0, "0.0"},
                                      {-0.0, "-0.0"},
                                      {12, "12.0"},
                                      {0.25, "0.25"},
                                      {0.1 + 0.2, "0.30000000000000004"},
                                      {-1.5, "-1.5"},
                                      {1e-4, "0.0001"},
                                      {9.9e-5, "9.9e-05"},
                                      {1e-5, "1e-05"},
                                      {1e15, "1000000000000000.0"},
                                      {9007199254740993.0, "9007199254740992.0"},
                                      {1e16, "1e+16"},
                                      {1.5e300, "1.5e+300"},
                                      {Limits::denorm_min(), "5e-324"},
                                      {Limits::max(), "1.7976931348623157e+308"},
                                      {Limits::infinity(), "inf"},
                                      {-Limits::infinity(), "-inf"},
                                      {-Limits::quiet_NaN(), "nan"}})
        EXPECT_EQ(shortestText(value), text);
}

} // namespace
} // namespace Tessarin
