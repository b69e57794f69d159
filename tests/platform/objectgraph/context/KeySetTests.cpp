#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"

#include <gtest/gtest.h>
#include <random>

namespace Tessarin {
namespace {

// Small enough to be searched through, at the border, and with an index that grows and is made anew.
TEST(KeySets, HoldWhatAPlainListDoes) {
    for (std::size_t const most : {8, 30, 400}) {
        std::mt19937 random(static_cast<unsigned>(most));
        auto const below = [&](std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(random); };
        KeySet set;
        std::vector<RecordKey> list;
        for (int step = 0; step < 4'000; ++step) {
            auto const temporary = static_cast<RecordKey>(below(most * 2)) - static_cast<RecordKey>(most * 2 + 1); // never 0
            auto const key = below(2) == 0 ? temporary : -temporary;
            auto const found = std::ranges::find(list, key);
            ASSERT_EQ(set.contains(key), found != list.end());
            if (list.size() > 1 && below(40) == 0) {
                auto const from = below(list.size()), to = below(list.size());
                auto const moved = list[from];
                list.erase(list.begin() + static_cast<std::ptrdiff_t>(from));
                list.insert(list.begin() + static_cast<std::ptrdiff_t>(to), moved);
                set.move(from, to);
            } else if (below(30) == 0) { // some become permanent, or leave where that one is there already
                auto const before = list;
                auto const now = [&](RecordKey each) {
                    if (each > 0 || each % 3 != 0) return each;
                    return std::ranges::find(before, -each) == before.end() ? -each : 0;
                };
                for (auto& each : list) each = now(each);
                std::erase(list, 0);
                set.translate(now);
            } else if (found == list.end() && list.size() < most) {
                ASSERT_TRUE(set.add(key));
                list.push_back(key);
            } else {
                ASSERT_EQ(set.remove(key), found != list.end());
                if (found != list.end()) list.erase(found);
            }
            ASSERT_EQ(set.size(), list.size());
            if (below(10) == 0) {
                ASSERT_TRUE(std::ranges::equal(set.keys(), list));
            }
        }
    }
}

} // namespace
} // namespace Tessarin
