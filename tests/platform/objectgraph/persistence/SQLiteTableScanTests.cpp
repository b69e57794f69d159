#include "StoreFixture.h"

#include <atomic>
#include <set>
#include <thread>

namespace Tessarin::tests {
namespace {

/// Few tags, whose keys lie so far apart that a fetch of all takes their table for a long one.
class TagsFarApart : public testing::Test {
protected:
    static constexpr RecordKey count = 600, distance = 50;

    TagsFarApart() : here(folder.url("a.db"), libraryModel().build()), there(folder.url("a.db"), libraryModel().build()) {
        first = here.store->reserveKeys(count * distance, here.error);
        std::vector<RecordChange> changes;
        for (RecordKey key = first; key < first + count * distance; key += distance)
            changes.push_back(here.insertion("Tag", key, {{"name", "0"}}));
        EXPECT_FALSE(here.save(std::move(changes)));
    }

    /// Every tag's name becomes this, in one save of another opening of the file.
    void rename(std::string const& name) {
        std::vector<RecordChange> changes;
        for (auto const& row : there.fetch("Tag")) changes.push_back(there.update(row, {{"name", name}}));
        ASSERT_FALSE(there.save(std::move(changes)));
    }

    StoreFolder folder;
    OpenStore here, there;
    RecordKey first = 0;
};

TEST_F(TagsFarApart, ARepeatedScanSeesWhatAnybodySavedMeanwhile) {
    std::vector<RecordKey> keys;
    for (RecordKey key = first; key < first + count * distance; key += distance) keys.push_back(key);
    EXPECT_EQ(keysOf(here.fetch("Tag")), keys);
    EXPECT_EQ(keysOf(here.fetch("Tag")), keys);

    auto const ours = here.fetch("Tag");
    ASSERT_FALSE(here.save({here.deletion(ours[7]), here.update(ours[8], {{"name", "ours"}})}));
    keys.erase(keys.begin() + 7);
    auto found = here.fetch("Tag");
    EXPECT_EQ(keysOf(found), keys);
    EXPECT_EQ(here.value(found[7], "name"), Value("ours"));

    auto const theirs = there.fetch("Tag");
    ASSERT_FALSE(there.save({there.deletion(theirs[0]), there.update(theirs[1], {{"name", "theirs"}})}));
    keys.erase(keys.begin());
    found = here.fetch("Tag");
    EXPECT_EQ(keysOf(found), keys);
    EXPECT_EQ(here.value(found[0], "name"), Value("theirs"));
}

TEST_F(TagsFarApart, AScanByTwoThreadsSeesOneStateOfTheFile) {
    std::atomic<bool> isRenaming{true};
    std::thread writer([&] {
        for (int round = 1; round <= 40; ++round) rename(std::to_string(round));
        isRenaming = false;
    });
    std::string last = "0";
    do {
        OpenStore fresh(folder.url("a.db"), libraryModel().build()); // has no rows at hand
        std::set<std::string> names;
        for (auto const& row : fresh.fetch("Tag")) names.insert(fresh.value(row, "name").description());
        EXPECT_EQ(names.size(), 1U);
        EXPECT_LE(std::stoi(last), std::stoi(*names.begin()));
        last = *names.begin();
    } while (isRenaming);
    writer.join();
    EXPECT_EQ(here.value(here.fetch("Tag").back(), "name"), Value("40"));
}

} // namespace
} // namespace Tessarin::tests
