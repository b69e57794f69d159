#include "Tessarin/platform/foundation/values/NSData.h"
#include <gtest/gtest.h>
#include <random>

namespace Tessarin::tests {
namespace {

std::string bySlowTable(NSData const& data, char const* digits) {
    std::string text;
    for (auto const byte : data.bytes())
        text += {digits[std::to_integer<int>(byte) >> 4], digits[std::to_integer<int>(byte) & 15]};
    return text;
}

TEST(Hexadecimal, EveryLengthReadsBackAndEveryForeignCharacterIsFound) {
    std::mt19937 random(7);
    for (std::size_t length = 0; length < 70; ++length) { // whole vectors, and what is left behind them
        std::vector<std::byte> bytes(length);
        for (auto& byte : bytes) byte = static_cast<std::byte>(random());
        NSData const data{std::move(bytes)};
        auto const lower = data.hexadecimalText(), upper = data.hexadecimalText({.digits = HexadecimalDigits::Upper});
        ASSERT_EQ(lower, bySlowTable(data, "0123456789abcdef"));
        ASSERT_EQ(upper, bySlowTable(data, "0123456789ABCDEF"));
        ASSERT_EQ(NSData::dataWithHexadecimalText(lower), data);
        ASSERT_EQ(NSData::dataWithHexadecimalText(upper), data);
        ASSERT_FALSE(NSData::dataWithHexadecimalText(lower + "0")) << "an odd digit";
        auto broken = lower;
        for (char const foreign : {'/', ':', '@', 'G', '`', 'g', ' ', '\0', '\x90', '\xC1'}) {
            if (broken.empty()) break;
            auto& place = broken[random() % broken.size()];
            auto const before = std::exchange(place, foreign);
            ASSERT_FALSE(NSData::dataWithHexadecimalText(broken)) << broken;
            place = before;
        }
    }
}

TEST(Hexadecimal, SeparatorsStandBetweenGroupsAndNowhereElse) {
    auto const data = NSData::dataWithText("tessarin");
    struct Row {
        HexadecimalStyle style;
        char const* text;
    };
    for (auto const& [style, text] : {
             Row{{.separator = ":"}, "74:65:73:73:61:72:69:6e"},
             Row{{.separator = " ", .groupedBy = 3}, "746573 736172 696e"},
             Row{{.digits = HexadecimalDigits::Upper, .separator = ", ", .groupedBy = 4}, "74657373, 6172696E"},
             Row{{.separator = "-", .groupedBy = 0}, "74-65-73-73-61-72-69-6e"},
             Row{{.separator = "-", .groupedBy = SIZE_MAX}, "746573736172696e"},
         }) {
        EXPECT_EQ(data.hexadecimalText(style), text);
        EXPECT_EQ(NSData::dataWithHexadecimalText(text, style), data) << text;
    }
    for (auto const* ill : {":74", "74:", "74::65", "7465", "7:465", "74:6", "74;65", "74:65 "})
        EXPECT_FALSE(NSData::dataWithHexadecimalText(ill, {.separator = ":"})) << ill;
    EXPECT_EQ(NSData::dataWithHexadecimalText("", {.separator = ":"}), NSData());
}

TEST(Hexadecimal, ADumpShowsOffsetsBytesAndTheirText) {
    EXPECT_EQ(NSData().hexadecimalDump(), "");
    EXPECT_EQ(NSData::dataWithText("0123456789abcdef\tz\x7F").hexadecimalDump(),
              "00000000  30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  |0123456789abcdef|\n"
              "00000010  09 7a 7f                                          |.z.|\n");
    EXPECT_EQ(hexadecimalDump({}, 16), "");
}

} // namespace
} // namespace Tessarin::tests
