// What holds when several threads use one store.
#include "StoreFixture.h"

#include <atomic>
#include <thread>

namespace Tessarin::tests {
namespace {

TEST(SQLiteStore, FetchesBesideASaveSeeAllOfItOrNothing) {
    StoreFolder folder;
    OpenStore open(folder.url("shared.db"), libraryModel().build());
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    for (int at = 0; at < 2; ++at)
        readers.emplace_back([&] {
            std::size_t last = 0;
            while (!done) {
                StoreAnswer answer;
                EXPECT_FALSE(open.store->fetch({.entity = &open.entity("Author")}, answer));
                EXPECT_EQ(answer.rows.size() % 50, 0U);
                EXPECT_GE(answer.rows.size(), last) << "an older state came back";
                last = answer.rows.size();
            }
        });
    for (int round = 0; round < 30; ++round) {
        auto const first = open.store->reserveKeys(50, open.error);
        std::vector<RecordChange> changes;
        for (RecordKey key = first; key < first + 50; ++key) changes.push_back(open.insertion("Author", key, {{"name", "x"}}));
        EXPECT_FALSE(open.save(std::move(changes)));
        EXPECT_EQ(open.fetch("Author").size(), static_cast<std::size_t>(round + 1) * 50)
            << "a save is not seen by the next fetch";
    }
    done = true;
    for (auto& reader : readers) reader.join();
}

} // namespace
} // namespace Tessarin::tests
