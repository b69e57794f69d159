// Links whose relationships change their ends; every pair of ends is the campaign "links".
#include "StoreFixture.h"

namespace Tessarin::tests {
namespace {

using Keys = std::vector<RecordKey>;

class LinkMigration : public testing::Test {
protected:
    /// Two records of A, the first with relationships, and the records 4 and 5 of B with their y.
    void save(Ref<NSManagedObjectModel> const& model, Dictionary const& toOnes,
              std::vector<std::pair<char const*, Keys>> const& toManys, std::array<RecordKey, 2> y) const {
        OpenStore open(file, model);
        for (int key = 0; key < 6; ++key) open.newKey();
        auto a = open.insertion("A", 1, toOnes);
        for (auto const& [name, members] : toManys) a.relationships.push_back(open.links("A", name, members, {}, members));
        ASSERT_FALSE(open.save({a, open.insertion("A", 2, {}), open.insertion("B", 4, {{"y", y[0]}}),
                                open.insertion("B", 5, {{"y", y[1]}})}));
    }
    TemporaryFolder folder;
    NSURL const file = folder.url("links.db");
};

TEST_F(LinkMigration, AContradictionNamesBothEndsAndARecord) {
    auto const model = [](bool areInverse) {
        return ModelBuilder()
            .entity("A")
            .toMany("x", "B", {.inverse = areInverse ? "y" : ""})
            .entity("B")
            .toOne("y", "A", {.inverse = areInverse ? "x" : ""})
            .build();
    };
    save(model(false), {}, {{"x", {4}}}, {2, 1});
    OpenStore open(file, model(true));
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
    save(model(false), {{"spouse", 2}}, {{"x", {5, 4}}, {"friends", {2}}}, {1, 1});
    OpenStore open(file, model(true));
    ASSERT_TRUE(open.store) << open.error->description();
    EXPECT_EQ(open.members("A", "x", 1), (Keys{5, 4}));
    for (RecordKey const key : {1, 2}) {
        EXPECT_EQ(open.members("A", "friends", key), Keys{3 - key});
        EXPECT_EQ(open.reference(open.read("A", key), "spouse"), 3 - key);
    }
    for (RecordKey const key : {4, 5})
        for (auto const* name : {"y", "z"}) EXPECT_EQ(open.reference(open.read("B", key), name), 1) << name;
}

} // namespace
} // namespace Tessarin::tests
