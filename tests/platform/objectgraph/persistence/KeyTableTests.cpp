// A table that loses pages and gets others, beside a map.
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <vector>

namespace Tessarin::tests {
namespace {

TEST(KeyTable, HoldsWhatAMapHoldsWhilePagesComeAndGo) {
    std::mt19937_64 random{20261122};
    static int things[64];
    for (std::uint64_t const farthest : {40ULL, 4'000ULL, 400'000ULL, 1ULL << 62}) { // from few pages to one for each key
        KeyTable<int> table;
        std::map<RecordKey, int*> judge;
        std::vector<RecordKey> known;
        for (int step = 0; step < 6'000; ++step) {
            bool const isGrowing = step / 1'000 % 2 == 0; // and then shrinking
            bool const isOld = !known.empty() && random() % 4 != 0;
            auto const key = isOld ? known[random() % known.size()] : static_cast<RecordKey>(random() % farthest) - 20;
            known.push_back(key);
            if (random() % 8 < (isGrowing ? 6U : 1U)) {
                table.set(key, judge[key] = &things[random() % 64]);
            } else {
                auto const found = judge.find(key);
                table.remove(key, found == judge.end() ? &things[0] : found->second);
                if (found != judge.end()) judge.erase(found);
            }
            auto const asked = known[random() % known.size()];
            auto const found = judge.find(asked);
            ASSERT_EQ(table.find(asked), found == judge.end() ? nullptr : found->second) << step;
        }
        std::map<RecordKey, int*> held;
        table.forEach([&](RecordKey key, int* thing) { held.emplace(key, thing); });
        EXPECT_EQ(held, judge);
        EXPECT_EQ(table.size(), judge.size());
    }
}

} // namespace
} // namespace Tessarin::tests
