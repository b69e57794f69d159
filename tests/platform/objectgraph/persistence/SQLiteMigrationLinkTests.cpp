// Links through every change of two relationships, A.x and B.y, compared with maps that do the same.
#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/migration/MigrationPlan.h"
#include <map>
#include <random>

namespace Tessarin::tests {
namespace {

using Keys = std::vector<RecordKey>;
using Links = std::map<RecordKey, Keys>; // in their order

enum class End { None, One, Many, Ordered };
struct Ends {
    End x, y;
    bool areInverse;
    std::string text() const {
        static constexpr char const* names[] = {"-", "1", "[]", "<>"};
        return std::string(names[int(x)]) + (areInverse ? " = " : " | ") + names[int(y)];
    }
};
constexpr RecordKey as[] = {1, 2, 3}, bs[] = {4, 5, 6};

Ref<NSManagedObjectModel> modelOf(Ends const& ends) {
    ModelBuilder builder;
    auto const add = [&](char const* entity, char const* name, char const* destination, char const* inverse, End end) {
        builder.entity(entity);
        RelationshipOptions const options{.inverse = ends.areInverse ? inverse : "", .ordered = end == End::Ordered};
        if (end == End::One) builder.toOne(name, destination, options);
        if (end > End::One) builder.toMany(name, destination, options);
    };
    add("A", "x", "B", "y", ends.x);
    add("B", "y", "A", "x", ends.y);
    return builder.build();
}

Links swapped(Links const& links) {
    Links result;
    for (auto const& [owner, members] : links)
        for (auto const member : members) result[member].push_back(owner);
    return result;
}
/// Those of `first` in their order, then what only `second` has.
Links joined(Links first, Links const& second) {
    for (auto const& [owner, members] : second) {
        auto& all = first[owner];
        auto const known = static_cast<std::ptrdiff_t>(all.size());
        for (auto const member : members)
            if (std::ranges::find(all, member) == all.end()) all.push_back(member);
        std::ranges::sort(all.begin() + known, all.end());
    }
    return first;
}
Links byKey(Links links) {
    for (auto& [owner, members] : links) std::ranges::sort(members);
    return links;
}
bool leadsToSeveral(Links const& links) {
    return std::ranges::any_of(links, [](auto const& each) { return each.second.size() > 1; });
}

class LinkMigration : public testing::Test {
protected:
    Links randomLinks(End end, std::span<RecordKey const> owners, std::span<RecordKey const> members) {
        Links links;
        for (auto const owner : owners) {
            Keys all(members.begin(), members.end());
            std::ranges::shuffle(all, random);
            if (end == End::None) all.clear();
            all.resize(std::min<std::size_t>(all.size(), random() % (end == End::One ? 2 : 3)));
            if (!all.empty()) links[owner] = end == End::Ordered ? all : byKey({{0, all}})[0];
        }
        return links;
    }
    /// What two ends hold may be.
    void fill(Ends const& ends, Links& x, Links& y) {
        if (ends.areInverse && ends.x != End::One) {
            y = randomLinks(ends.y, bs, as);
            x = byKey(swapped(y));
            if (ends.x == End::Ordered)
                for (auto& [owner, members] : x) std::ranges::shuffle(members, random);
            return;
        }
        x = randomLinks(ends.x, as, bs);
        if (!ends.areInverse) y = randomLinks(ends.y, bs, as);
        if (ends.areInverse && ends.y == End::One)
            std::erase_if(x, [&](auto const& each) { return swapped(x)[each.second[0]][0] != each.first; });
        if (ends.areInverse) y = byKey(swapped(x));
        if (ends.areInverse && ends.y == End::Ordered)
            for (auto& [owner, members] : y) std::ranges::shuffle(members, random);
    }
    static RecordChange record(OpenStore& open, char const* entity, char const* name, End end, RecordKey key,
                               Links const& links) {
        auto const found = links.find(key);
        auto const members = found == links.end() ? Keys() : found->second;
        auto change =
            open.insertion(entity, key, end == End::One && !members.empty() ? Dictionary{{name, members[0]}} : Dictionary());
        if (end > End::One)
            change.relationships = {
                open.links(entity, name, members, {}, end == End::Ordered ? std::optional(members) : std::nullopt)};
        return change;
    }
    static void save(OpenStore& open, Ends const& ends, Links const& x, Links const& y) {
        for (int key = 0; key < 6; ++key) open.newKey();
        std::vector<RecordChange> changes;
        for (auto const key : as) changes.push_back(record(open, "A", "x", ends.x, key, x));
        for (auto const key : bs) changes.push_back(record(open, "B", "y", ends.y, key, y));
        ASSERT_FALSE(open.save(changes));
    }
    static Links read(OpenStore& open, char const* entity, char const* name, End end, std::span<RecordKey const> owners) {
        Links links;
        for (auto const owner : owners) {
            Keys members;
            if (end > End::One) members = open.members(entity, name, owner);
            if (end == End::One) {
                auto const row = open.read(entity, owner);
                auto const cell =
                    static_cast<std::size_t>(row->layout().cellOf(open.entity(entity).propertyNamed(name)->index()));
                if (row->isPresent(cell)) members.push_back(row->integer(cell));
            }
            if (!members.empty()) links[owner] = members;
        }
        return links;
    }

    std::mt19937 random{20};
};

TEST_F(LinkMigration, KeepsEveryLinkOfEveryPairOfEndsOrRefuses) {
    std::map<std::string, int> met;
    for (int round = 0; round < 50; ++round) {
        auto const ends = [&] {
            Ends const found{End(random() % 4), End(random() % 4), random() % 2 == 0};
            return found.x == End::None || found.y == End::None ? Ends{found.x, found.y, false} : found;
        };
        auto const before = ends(), after = ends();
        SCOPED_TRACE(before.text() + " → " + after.text() + ", round " + std::to_string(round));
        StoreFolder folder;
        auto const file = folder.url("links.db");
        Links x, y;
        fill(before, x, y);
        {
            OpenStore open(file, modelOf(before));
            save(open, before, x, y);
        }
        auto newX = after.areInverse ? joined(x, swapped(y)) : x, newY = after.areInverse ? joined(y, swapped(x)) : y;
        if (before.x != End::Ordered || after.x != End::Ordered) newX = byKey(newX);
        if (before.y != End::Ordered || after.y != End::Ordered) newY = byKey(newY);
        bool const isContradiction =
            (after.x == End::One && leadsToSeveral(newX)) || (after.y == End::One && leadsToSeveral(newY));

        Ref<NSError> error;
        auto const plan = MigrationPlan::dryRun(file, modelOf(after), error);
        OpenStore open(file, modelOf(after));
        ASSERT_EQ(bool(plan), bool(open.store)) << (error ? error : open.error)->description();
        ASSERT_EQ(bool(plan), !isContradiction) << (error ? error->description() : plan->description());
        if (!plan) {
            ASSERT_EQ(error->localizedDescription(), open.error->localizedDescription());
            ASSERT_NE(error->localizedDescription().find(" in the way, such as number "), std::string::npos);
            ++met["refused"];
            continue;
        }
        ASSERT_EQ(read(open, "A", "x", after.x, as), after.x == End::None ? Links() : newX);
        ASSERT_EQ(read(open, "B", "y", after.y, bs), after.y == End::None ? Links() : newY);
        auto const tells = [&](char const* text) { return plan->description().find(text) != std::string::npos; };
        ASSERT_EQ(tells("A.x: goes"), before.x != End::None && after.x == End::None) << plan->description();
        ASSERT_EQ(tells("A.x: has no inverse"), before.areInverse && !after.areInverse && after.x != End::None)
            << plan->description();
        bool const hadTwoEnds = before.x != End::None && before.y != End::None;
        ASSERT_EQ(tells("is the inverse of"), after.areInverse && !before.areInverse && hadTwoEnds) << plan->description();
        ++met["kept"];
    }
    EXPECT_GT(met["refused"], 4);
    EXPECT_GT(met["kept"], 25);
}

TEST_F(LinkMigration, AContradictionNamesBothEndsAndARecord) {
    StoreFolder folder;
    auto const file = folder.url("links.db");
    Ends const before{End::Many, End::One, false};
    {
        OpenStore open(file, modelOf(before));
        save(open, before, {{1, {4}}}, {{4, {2}}, {5, {1}}});
    }
    OpenStore open(file, modelOf({End::Many, End::One, true}));
    ASSERT_FALSE(open.store);
    EXPECT_EQ(open.error->localizedDescription(),
              "The store's records cannot be brought to this model: B.y: it is the inverse of A.x now, "
              "and the two contradict each other; 1 record is in the way, such as number 4 (1, 2).");
}

TEST_F(LinkMigration, AnInverseMovesToAnotherPropertyAndARelationshipBecomesItsOwn) {
    auto const model = [](bool isLater) {
        auto const own = [&](char const* name) { return RelationshipOptions{.inverse = isLater ? name : ""}; };
        ModelBuilder builder;
        builder.entity("A").toMany("x", "B", {.inverse = isLater ? "z" : "y", .ordered = true});
        builder.toMany("friends", "A", own("friends")).toOne("spouse", "A", own("spouse"));
        builder.entity("B").toOne("y", "A", {.inverse = isLater ? "" : "x"});
        if (isLater) builder.toOne("z", "A", {.inverse = "x"});
        return builder.build();
    };
    StoreFolder folder;
    auto const file = folder.url("links.db");
    {
        OpenStore open(file, model(false));
        for (int key = 0; key < 6; ++key) open.newKey();
        auto a = open.insertion("A", 1, {{"spouse", 2}});
        a.relationships = {open.links("A", "x", {5, 4}, {}, Keys{5, 4}), open.links("A", "friends", {2})};
        ASSERT_FALSE(
            open.save({a, open.insertion("A", 2, {}), open.insertion("B", 4, {{"y", 1}}), open.insertion("B", 5, {{"y", 1}})}));
    }
    OpenStore open(file, model(true));
    ASSERT_TRUE(open.store) << open.error->description();
    RecordKey const owners[] = {1, 2}, members[] = {4, 5};
    EXPECT_EQ(read(open, "A", "x", End::Ordered, owners), (Links{{1, {5, 4}}}));
    EXPECT_EQ(read(open, "A", "friends", End::Many, owners), (Links{{1, {2}}, {2, {1}}}));
    EXPECT_EQ(read(open, "A", "spouse", End::One, owners), (Links{{1, {2}}, {2, {1}}}));
    for (auto const* name : {"y", "z"}) EXPECT_EQ(read(open, "B", name, End::One, members), (Links{{4, {1}}, {5, {1}}}));
}

} // namespace
} // namespace Tessarin::tests
