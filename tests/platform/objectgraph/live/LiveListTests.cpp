#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "Tessarin/platform/objectgraph/query/SearchRank.h"
#include "tests/platform/objectgraph/context/Library.h"
#include <sstream>
#include <string>
#include <vector>

namespace Tessarin::tests {
namespace {

/// "+0x2" two rows come at 0, "-3" one goes, "1>4" one moves, "~2" one shows something else; with sections "1/0" is row 0 of
/// section 1, and "S+1", "S-1" are sections that come and go.
std::string textOf(LiveChanges const& changes, bool hasSections) {
    using Kind = LiveChange::Kind;
    std::string text;
    auto const place = [&](std::size_t section, std::size_t row) {
        return (hasSections ? std::to_string(section) + "/" : "") + std::to_string(row);
    };
    for (auto const& step : changes.steps()) {
        auto const at = place(step.section, step.row), section = std::to_string(step.section);
        if (!text.empty()) text += " ";
        switch (step.kind) {
        case Kind::InsertSection: text += "S+" + section; break;
        case Kind::RemoveSection: text += "S-" + section; break;
        case Kind::Insert: text += "+" + at; break;
        case Kind::Remove: text += "-" + at; break;
        case Kind::Update: text += "~" + at; break;
        case Kind::Move: text += at + ">" + place(step.toSection, step.toRow); break;
        }
        if (step.count != 1) text += "x" + std::to_string(step.count);
    }
    return text;
}

/// Words, one after the other: "+A" adds a book, "-A" deletes it, "A=B" gives it another title, "A~5" another year.
void edit(NSManagedObjectContext& context, std::string const& words) {
    std::istringstream input(words);
    for (std::string word; input >> word;) {
        auto const book = [&](std::string const& title) { return fetched(context, "Book", where("title == %@", title)).at(0); };
        if (word[0] == '+') {
            inserted(context, "Book", {{"title", word.substr(1)}});
        } else if (word[0] == '-') {
            context.deleteObject(*book(word.substr(1)));
        } else if (auto const value = word.substr(2); word[1] == '=') {
            book(word.substr(0, 1))->setValueForKey(Value(value), "title");
        } else {
            book(word.substr(0, 1))->setValueForKey(Value(std::stoll(value)), "year");
        }
    }
}

/// A list of a context's books by title, and what it told.
class Watched {
public:
    explicit Watched(Ref<NSManagedObjectContext> const& context, LiveOptions options = {}, Ref<NSPredicate> predicate = nullptr) {
        context->performBlockAndWait([&] {
            auto const request = make<NSFetchRequest>("Book");
            request->setPredicate(std::move(predicate));
            request->setSortDescriptors({by("title")});
            bool const hasSections = !options.sectionKeyPath.empty();
            list = make<LiveList>(context, request, std::move(options));
            connection =
                list->observe([this, hasSections](LiveChanges const& changes) { told.push_back(textOf(changes, hasSections)); });
        });
    }
    /// "1900:AB 1950:C"; without sections the titles alone.
    std::string text() const {
        std::string text;
        list->context()->performBlockAndWait([&] {
            for (std::size_t section = 0; section < list->sections().size(); ++section) {
                auto const& [name, count] = list->sections()[section];
                if (name.kind() != Value::Kind::Absent) text += (text.empty() ? "" : " ") + name.description() + ":";
                for (std::size_t row = 0; row < count; ++row)
                    text += list->object(section, row)->valueForKey("title").description();
            }
        });
        return text;
    }

    Ref<LiveList> list;
    std::vector<std::string> told;
    ScopedConnection connection;
};

using Told = std::vector<std::string>;

struct LiveListTest : LibraryTest {
    /// What one turn with those edits tells, and what the list shows then.
    void expectTurn(Watched& watched, std::string const& edits, std::string const& steps, std::string const& shown) {
        SCOPED_TRACE(edits);
        root->performBlockAndWait([&] { edit(*root, edits); });
        EXPECT_EQ(watched.told, steps.empty() ? Told() : Told{steps});
        EXPECT_EQ(watched.text(), shown);
        root->performBlockAndWait([&] { root->rollback(); });
        watched.told.clear();
    }
};
INSTANTIATE_TEST_SUITE_P(Stores, LiveListTest, bothStores, storeName);

TEST_P(LiveListTest, TellsStepsThatApplyOneAfterTheOther) {
    root->performBlockAndWait([&] { edit(*root, "+B +D +F +H"); });
    ASSERT_TRUE(saves(*root));
    Watched watched(root, {}, where("year < 1950"));
    struct Row {
        char const *edits, *steps, *shown;
    };
    static constexpr Row rows[] = {
        {"+A", "+0", "ABDFH"},     {"+E +C", "+1 +3", "BCDEFH"},    {"+Z +X +Y", "+4x3", "BDFHXYZ"},
        {"-F -D", "-1x2", "BH"},   {"-B -H", "-3 -0", "DF"},        {"F~1901 D~1902", "~1x2", "BDFH"},
        {"D=Z", "1>3 ~3", "BFHZ"}, {"D=E", "~1", "BEFH"},           {"-B D=Z +A H~1901", "-0 0>2 +0 ~2x2", "AFHZ"},
        {"D~1950", "-1", "BFH"},   {"D~1950 D~1949", "~1", "BDFH"}, {"+A -A", "", "BDFH"},
        {"+A A~1960", "", "BDFH"}, {"B=A A=B", "~0", "BDFH"},
    };
    for (auto const& [edits, steps, shown] : rows) expectTurn(watched, edits, steps, shown);
}

TEST_P(LiveListTest, SectionsComeBeforeTheirRowsAndGoAfterThem) {
    root->performBlockAndWait([&] { edit(*root, "+A +B +C A~1 B~1 C~2"); });
    ASSERT_TRUE(saves(*root));
    Watched watched(root, {.sectionKeyPath = "year"});
    struct Row {
        char const *edits, *steps, *shown;
    };
    static constexpr Row rows[] = {
        {"+D D~3", "S+2 +2/0", "1:AB 2:C 3:D"},
        {"+D D~1", "+0/2", "1:ABD 2:C"},
        {"-C", "-1/0 S-1", "1:AB"},
        {"C~1", "1/0>0/2 ~0/2 S-1", "1:ABC"},
        {"C~3", "S+2 1/0>2/0 ~2/0 S-1", "1:AB 3:C"},
        {"A~0", "S+0 1/0>0/0 ~0/0", "0:A 1:B 2:C"},
        {"-A -B +D D~1", "-0/0x2 +0/0", "1:D 2:C"},
        {"B=D C=A", "~0/1 ~1/0", "1:AD 2:A"},
    };
    EXPECT_EQ(watched.text(), "1:AB 2:C");
    for (auto const& [edits, steps, shown] : rows) expectTurn(watched, edits, steps, shown);
}

TEST_P(LiveListTest, IsToldAtTheEndOfATurnAndByWhoeverSavesBelow) {
    Watched watched(root);
    auto const worker = library.worker();
    Watched below(worker);
    root->performBlockAndWait([&] {
        edit(*root, "+B");
        root->performBlockAndWait([&] { edit(*root, "+A"); });
        EXPECT_EQ(fetched(*root, "Book").size(), 2u);
        EXPECT_TRUE(root->save(error));
        EXPECT_EQ(watched.told, Told());
        edit(*root, "A~1901");
    });
    EXPECT_EQ(watched.told, Told{"+0x2"});
    EXPECT_TRUE(saves(*root));
    watched.told.clear();

    worker->performBlockAndWait([&] { edit(*worker, "+C B=D"); });
    EXPECT_EQ(watched.told, Told());
    EXPECT_EQ(below.text(), "ACD");
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(watched.text(), "ACD") << "its own queue brings it";
    EXPECT_EQ(watched.told, Told{"+1 ~2"});
    EXPECT_EQ(below.text(), "ACD") << "by keys that nobody else knew before";
}

TEST_P(LiveListTest, WhatALargeSaveBringsIsToldInPartsThatApply) {
    static constexpr std::size_t count = 25'000;
    auto const worker = library.worker();
    std::vector<std::size_t> parts;
    std::size_t size = 0;
    Watched watched(root, {.sectionKeyPath = "year"});
    auto const connection = watched.list->observe([&](LiveChanges const& changes) {
        for (auto const& step : changes.steps())
            if (step.kind == LiveChange::Kind::Insert) size += step.count;
        parts.push_back(watched.list->size());
        EXPECT_EQ(size, watched.list->size());
    });
    worker->performBlockAndWait([&] {
        for (std::size_t at = 0; at < count; ++at) {
            auto const book = worker->insertNewObject("Book");
            book->setValueForKey(Value("t" + std::to_string(at * 7919 % count)), "title");
            book->setValueForKey(Value(static_cast<std::int64_t>(at % 10)), "year");
        }
    });
    ASSERT_TRUE(saves(*worker));
    for (bool isSeenGrowing = false; !isSeenGrowing;) root->performBlockAndWait([&] { isSeenGrowing = parts.size() > 2; });
    root->performBlockAndWait([&] { watched.list->finish(); });
    EXPECT_EQ(parts.back(), count);
    EXPECT_LT(parts[1], count);
    EXPECT_EQ(watched.list->sections().size(), 10u);
    EXPECT_LT(root->registeredObjects().size(), 2'000u) << "nobody looked at them";
}

TEST_P(LiveListTest, WhoeverIsToldMayChangeObjectsAndComeAndGo) {
    Watched first(root);
    Told second;
    ScopedConnection connection;
    connection = first.list->observe([&](LiveChanges const& changes) {
        second.push_back(textOf(changes, false));
        if (second.size() == 1) edit(*root, "+A");
        if (second.size() == 2) connection = {};
    });
    root->performBlockAndWait([&] { edit(*root, "+B"); });
    root->performBlockAndWait([&] {}); // what the change by whoever was told brings
    root->performBlockAndWait([&] { edit(*root, "+C"); });
    EXPECT_EQ(second, (Told{"+0", "+0"})) << "its connection has ended";
    EXPECT_EQ(first.told, (Told{"+0", "+0", "+2"}));
    first.connection = {};
    root->performBlockAndWait([&] { edit(*root, "+D"); });
    EXPECT_EQ(first.told.size(), 3u);
    EXPECT_EQ(first.text(), "ABCD");
}

TEST_P(LiveListTest, LearnsOfADeletionBySomebodyWhoDidNotKnowOfTheManyUnsavedLinks) {
    auto const zoe = inserted(*root, "Author", {{"name", "Zoe"}}), ann = inserted(*root, "Author", {{"name", "Ann"}});
    ASSERT_TRUE(saves(*root));
    auto const worker = library.worker();
    worker->performBlockAndWait([&] { worker->deleteObject(*worker->objectWithID(*zoe->objectID())); });
    inserted(*root, "Book", {{"title", "hers"}, {"author", Value(ann)}});
    for (int i = 0; i < 100; ++i) inserted(*root, "Book", {{"author", Value(zoe)}});
    auto const request = make<NSFetchRequest>("Book");
    request->setSortDescriptors({by("author.name")});
    Ref<LiveList> list;
    auto const hers = [&](std::size_t at) {
        std::string title;
        root->performBlockAndWait([&] { title = (*list)[at]->valueForKey("title").text(); });
        return title == "hers";
    };
    root->performBlockAndWait([&] { list = make<LiveList>(root, request); });
    EXPECT_TRUE(hers(0));
    ASSERT_TRUE(saves(*worker));
    root->performBlockAndWait([&] { list->finish(); });
    EXPECT_TRUE(hers(100)) << "behind those of nobody";
}

TEST_P(LiveListTest, LearnsThatATagIsGoneThatOnlyUnsavedBooksHad) {
    auto const tag = inserted(*root, "Tag", {{"name", "t"}});
    ASSERT_TRUE(saves(*root));
    auto const worker = library.worker();
    worker->performBlockAndWait([&] { worker->deleteObject(*worker->objectWithID(*tag->objectID())); });
    auto const book = inserted(*root, "Book", {{"title", "A"}});
    root->performBlockAndWait([&] { book->mutableSetValueForKey("tags").addObject(tag); });
    Watched const list(root, {}, where("ANY tags.name == 't'"));
    EXPECT_EQ(list.text(), "A");
    ASSERT_TRUE(saves(*worker));
    root->performBlockAndWait([] {});
    EXPECT_EQ(list.text(), "");
}

TEST_P(LiveListTest, OutlivesItsContext) {
    Ref<LiveList> list;
    {
        auto const worker = library.worker();
        worker->performBlockAndWait([&] { edit(*worker, "+A"); });
        list = Watched(worker).list;
    }
    EXPECT_EQ(list->size(), 1u);
    EXPECT_FALSE(list->context());
    list->finish();
    EXPECT_DEATH((*list)[0], "context is gone");
}

TEST_P(LiveListTest, LetsGoOfANewObjectThatASaveUnitesWithAnother) {
    inserted(*root, "Icon", {{"name", "same"}});
    ASSERT_TRUE(saves(*root));
    root->setMergePolicy(NSMergeByPropertyStoreTrumpMergePolicy());
    Ref<LiveList> list;
    auto const shown = [&] {
        std::size_t count = 0;
        root->performBlockAndWait([&] { count = list->size(); });
        return count;
    };
    root->performBlockAndWait([&] { list = make<LiveList>(root, make<NSFetchRequest>("Icon")); });
    inserted(*root, "Icon", {{"name", "same"}});
    EXPECT_EQ(shown(), 2u);
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(shown(), 1u);
}

TEST(LiveList, FollowsAPathToWhatOnlyASubEntityHas) {
    auto const model = ModelBuilder()
                           .entity("Base")
                           .toOne("boss", "Base", {.inverse = "staff"})
                           .toMany("staff", "Base", {.inverse = "boss"})
                           .entity("Mid", {.parent = "Base"})
                           .attribute("code", NSAttributeType::Integer64)
                           .build();
    auto const context = contextOver(coordinatorOver(model)), other = contextOver(context->persistentStoreCoordinator());
    auto const boss = inserted(*context, "Mid", {{"code", 1}});
    inserted(*context, "Base", {{"boss", Value(boss)}});
    ASSERT_TRUE(saves(*context));
    Ref<LiveList> list;
    auto const size = [&] {
        std::size_t count = 0;
        context->performBlockAndWait([&] { count = list->size(); });
        return count;
    };
    context->performBlockAndWait([&] {
        auto const request = make<NSFetchRequest>("Base");
        request->setPredicate(NSPredicate::predicateWithFormat("boss.code == 2"));
        list = make<LiveList>(context, request);
    });
    EXPECT_EQ(size(), 0u);
    auto const update = make<NSBatchUpdateRequest>("Mid");
    update->setPropertiesToUpdate({{"code", 2}});
    update->setResultType(NSBatchRequestResultType::ObjectIDs);
    Ref<NSError> error;
    Ref<NSBatchUpdateResult> result;
    other->performBlockAndWait([&] { result = other->executeRequest(*update, error); });
    ASSERT_TRUE(result);
    NSManagedObjectContext::mergeChangesFromRemoteContextSave({{"updated", result->objectIDs()}}, {&context, 1});
    EXPECT_EQ(size(), 1u);
}

TEST(LiveList, FollowsASearchButNoRanks) {
    Library library(NSSQLiteStoreType);
    auto const& context = library.root;
    context->performBlockAndWait([&] { edit(*context, "+red-house +house +tree"); });
    ASSERT_TRUE(saves(*context));
    Watched watched(context, {}, where("title FINDS 'hou'"));
    EXPECT_EQ(watched.text(), "housered-house");
    context->performBlockAndWait([&] { edit(*context, "+a-houseboat -house +home"); });
    EXPECT_EQ(watched.text(), "a-houseboatred-house");
    context->performBlockAndWait([&] {
        auto const request = make<NSFetchRequest>("Book");
        request->setPredicate(where("title FINDS 'hou'"));
        request->setSortDescriptors({searchRank()});
        EXPECT_TRUE(make<LiveList>(context, request)->error());
    });
}

} // namespace
} // namespace Tessarin::tests
