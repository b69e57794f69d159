#include "Tessarin/platform/runtime/Ref.h"
#include "Tessarin/platform/runtime/SharedList.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace Tessarin {
namespace {

using Numbers = std::vector<Ref<int>>;

TEST(SharedList, IsWhatAPlainListIsWhoeverLeavesAndWalks) {
    for (unsigned seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        auto const upTo = [&](std::size_t count) { return random() % count; };
        SharedList<Ref<int>> list;
        Numbers plain, known;
        for (int at = 0; at < 200; ++at) known.push_back(std::make_shared<int>(at));
        if (seed % 3 != 0) list.set(plain = known); // else none stands there twice
        std::optional<SharedList<Ref<int>>::Reading> reading;
        Numbers read;
        for (int step = 0; step < 400; ++step) {
            auto const& one = seed % 3 == 0 && step < 200 ? known[static_cast<std::size_t>(step)] : known[upTo(known.size())];
            if (step % 97 == 0) reading.emplace(list), read = plain;
            if (seed % 3 == 0 ? step < 200 : upTo(4) == 0) {
                list.append(one);
                plain.push_back(one);
            } else if (upTo(16) == 0) {
                auto const place = upTo(plain.size() + 2);
                EXPECT_EQ(list.removeAt(place), place < plain.size());
                if (place < plain.size()) plain.erase(plain.begin() + static_cast<std::ptrdiff_t>(place));
            } else {
                list.remove(one);
                if (auto const found = std::ranges::find(plain, one); found != plain.end()) plain.erase(found);
            }
            ASSERT_EQ(list.copy(), plain) << seed << " " << step;
            ASSERT_EQ(list.isEmpty(), plain.empty());
            Numbers walked;
            for (auto const& each : *reading) walked.push_back(each);
            ASSERT_EQ(walked, read) << "who walks sees it as it was";
        }
    }
}

} // namespace
} // namespace Tessarin
