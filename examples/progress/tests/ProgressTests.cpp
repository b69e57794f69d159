#include <array>
#include <cstdio>
#include <gtest/gtest.h>

namespace {

TEST(Progress, TheBarGrowsToItsEndAndTheResultFollowsIt) {
    auto* const pipe = popen(PROGRESS, "r");
    ASSERT_NE(pipe, nullptr);
    std::string text;
    std::array<char, 4096> buffer;
    while (auto const count = std::fread(buffer.data(), 1, buffer.size(), pipe)) text.append(buffer.data(), count);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_TRUE(text.ends_with("\r[########################################] 60 of 60\n5963 primes below 59000\n")) << text;
    std::size_t longest = 0; // what is done never becomes less, once all has been added
    for (auto at = text.find("of 60"); at != std::string::npos; at = text.find("of 60", at + 1)) {
        auto const bar = text.rfind('[', at);
        auto const marks = text.find_first_not_of('#', bar + 1) - bar;
        EXPECT_GE(marks, longest);
        longest = marks;
    }
}

} // namespace
