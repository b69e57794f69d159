#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/platform/runtime/Format.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <thread>

namespace Tessarin {
namespace {

TEST(OutputDeathTest, FatalWritesOneLineAndAborts) {
    EXPECT_EXIT(fatal("out of tea"), testing::KilledBySignal(SIGABRT), "^out of tea\n$");
    EXPECT_EXIT(fatal("out\nof\ttea"), testing::KilledBySignal(SIGABRT), R"(^out\\nof\\ttea)");
}

TEST(Output, PrintsOfSeveralLinesAreNeverMixed) {
    testing::internal::CaptureStdout();
    std::printf("before ");
    print("it");
    std::vector<std::thread> threads;
    for (char const letter : {'a', 'b', 'c'})
        threads.emplace_back([letter] {
            for (int i = 0; i < 100; ++i) print(std::string(30, letter) + "\n" + std::string(30, letter));
        });
    for (auto& thread : threads) thread.join();
    auto const text = testing::internal::GetCapturedStdout();
    auto const first = text.find('\n') + 1;
    EXPECT_EQ(text.substr(0, first), "before it\n");
    ASSERT_EQ(text.size(), first + 300 * 62);
    for (std::size_t at = first; at < text.size(); at += 62) ASSERT_EQ(text.substr(at, 31), text.substr(at + 31, 31));
}

TEST(Format, DescriptionsAreFormattedLikeTexts) {
    class Named : public NSObject {
    public:
        std::string description() const override { return "Ada"; }
    };
    auto const named = make<Named>();
    EXPECT_EQ(fmt::format("{}|{:>5}|{:<5}|{}", *named, named, Text("t"), Value(List{1, "a"})), "Ada|  Ada|t    |[1, \"a\"]");
    EXPECT_EQ(fmt::format("{}", Ref<Named>()), "nil");
}

} // namespace
} // namespace Tessarin
