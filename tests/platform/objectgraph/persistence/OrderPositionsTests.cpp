#include "Tessarin/platform/objectgraph/persistence/rows/OrderPositions.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace Tessarin::tests {
namespace {

/// A list with what the store knows of it.
struct Stored {
    std::vector<RecordKey> order;
    std::map<RecordKey, std::int64_t> positions;

    std::size_t write() {
        std::vector<OrderedMember> members;
        for (auto const key : order)
            members.push_back({key, positions.contains(key) ? std::optional(positions[key]) : std::nullopt});
        auto const changed = changedPositions(members);
        for (auto const& [member, position] : changed) positions[member] = *position;
        for (std::size_t at = 1; at < order.size(); ++at)
            EXPECT_LT(positions[order[at - 1]], positions[order[at]]) << "at " << at;
        return changed.size();
    }
};

TEST(OrderPositions, OneMovedOrAddedMemberIsOneWrite) {
    Stored list;
    for (RecordKey key = 1; key <= 100; ++key) list.order.push_back(key);
    EXPECT_EQ(list.write(), 100U);
    EXPECT_EQ(list.write(), 0U);
    list.order.push_back(101);
    EXPECT_EQ(list.write(), 1U);
    list.order.insert(list.order.begin(), 102);
    EXPECT_EQ(list.write(), 1U);
    std::ranges::rotate(list.order.begin() + 10, list.order.begin() + 11, list.order.begin() + 60);
    EXPECT_EQ(list.write(), 1U);
    list.order.erase(list.order.begin() + 5);
    EXPECT_EQ(list.write(), 0U);
}

TEST(OrderPositions, AnyChangesLeaveThemAscending) {
    std::mt19937 random{11};
    Stored list;
    RecordKey next = 1;
    for (int round = 0; round < 2000; ++round) {
        auto const place = [&] { return list.order.begin() + static_cast<std::ptrdiff_t>(random() % list.order.size()); };
        if (list.order.size() < 5 || random() % 3 == 0)
            list.order.insert(list.order.begin() + std::min<std::ptrdiff_t>(3, std::ssize(list.order)),
                              next++); // always at one place: room runs out there
        else if (random() % 3 == 0)
            list.order.erase(place());
        else if (random() % 20 == 0)
            std::ranges::shuffle(list.order, random);
        else
            std::iter_swap(place(), place());
        list.write();
        ASSERT_FALSE(testing::Test::HasFailure()) << "in round " << round;
    }
}

} // namespace
} // namespace Tessarin::tests
