#include "tests/platform/objectgraph/context/Library.h"

namespace Tessarin::tests {
namespace {

class BatchRequest : public LibraryTest {
protected:
    NSManagedObjectContext& context = *root;

    void SetUp() override {
        author = inserted(context, "Author", {{"name", "Ann"}});
        a = inserted(context, "Book", {{"title", "A"}, {"year", 1}});
        b = inserted(context, "Book", {{"title", "B"}, {"year", 2}});
        c = inserted(context, "Novel", {{"title", "C"}, {"year", 3}, {"genre", "G"}});
        for (auto const& book : {a, b, c}) book->setValueForKey(author, "author");
        ASSERT_TRUE(saves(context));
    }
    Ref<NSBatchUpdateResult> update(char const* entity, Ref<NSPredicate> predicate,
                                    NSBatchUpdateRequest::PropertiesToUpdate values) {
        auto request = make<NSBatchUpdateRequest>(entity);
        request->setPredicate(std::move(predicate));
        request->setPropertiesToUpdate(std::move(values));
        request->setResultType(NSBatchRequestResultType::ObjectIDs);
        return context.executeRequest(*request, error);
    }
    Ref<NSBatchDeleteResult> remove(char const* entity, Ref<NSPredicate> predicate) {
        auto which = make<NSFetchRequest>(entity);
        which->setPredicate(std::move(predicate));
        auto request = make<NSBatchDeleteRequest>(which);
        request->setResultType(NSBatchRequestResultType::ObjectIDs);
        return context.executeRequest(*request, error);
    }
    /// Every book in the store, as "title:year".
    std::string books() {
        auto const reader = contextOver(library.coordinator);
        std::string text;
        for (auto const& book : fetched(*reader, "Book", nullptr, {by("title")}))
            text += book->valueForKey("title").description() + ":" + book->valueForKey("year").description() + " ";
        return text;
    }
    /// How many books fulfil each.
    static std::string countsOf(NSManagedObjectContext& context, std::vector<Ref<NSPredicate>> const& predicates) {
        std::string text;
        for (auto const& predicate : predicates) text += std::to_string(fetched(context, "Book", predicate).size()) + " ";
        return text;
    }
    Ref<NSManagedObject> author, a, b, c;
};
INSTANTIATE_TEST_SUITE_P(Stores, BatchRequest, bothStores, storeName);

TEST_P(BatchRequest, UpdatesWhatFitsAndNothingElse) {
    struct {
        char const* entity;
        Ref<NSPredicate> predicate;
        NSBatchUpdateRequest::PropertiesToUpdate values;
        std::size_t count;
        char const* books;
    } const rows[] = {
        {"Book", where("year >= 2"), {{"year", 7}}, 2, "A:1 B:7 C:7 "},
        {"Novel", nullptr, {{"year", 8}}, 1, "A:1 B:7 C:8 "},
        {"Book", where("author.name == 'Ann' AND year < 8"), {{"year", Value()}}, 2, "A:nil B:nil C:8 "},
        {"Book",
         where("draft == nil AND title == 'A'"),
         {{"year", NSExpression::expressionForConstantValue(9)}},
         1,
         "A:9 B:nil C:8 "},
        {"Novel",
         where("genre == 'G'"),
         {{"title", NSExpression::expressionForKeyPath("genre")}, {"genre", "H"}},
         1,
         "A:9 B:nil G:8 "},
        {"Book", where("year > 100"), {{"year", 1}}, 0, "A:9 B:nil G:8 "},
    };
    for (auto const& row : rows) {
        auto const result = update(row.entity, row.predicate, row.values);
        ASSERT_TRUE(result) << error->description();
        EXPECT_EQ(result->objectIDs().size(), row.count) << row.books;
        EXPECT_EQ(books(), row.books);
    }
    auto onlyBooks = make<NSBatchUpdateRequest>("Book");
    onlyBooks->setIncludesSubentities(false);
    onlyBooks->setPropertiesToUpdate({{"year", 5}});
    onlyBooks->setResultType(NSBatchRequestResultType::Count);
    EXPECT_EQ(context.executeRequest(*onlyBooks, error)->count(), 2);
    EXPECT_EQ(books(), "A:5 B:5 G:8 ");

    for (auto* const object : {&author, &a, &b, &c}) object->reset();
    context.reset(); // now nobody holds a row
    onlyBooks->setPropertiesToUpdate({{"year", 6}});
    EXPECT_EQ(context.executeRequest(*onlyBooks, error)->count(), 2);
    EXPECT_EQ(books(), "A:6 B:6 G:8 ");
}

TEST_P(BatchRequest, WhatTheModelForbidsIsRefusedAndWritesNothing) {
    auto const before = books();
    struct {
        char const* entity;
        NSBatchUpdateRequest::PropertiesToUpdate values;
        char const* message;
    } const rows[] = {
        {"Author", {{"name", Value()}}, "mandatory"},
        {"Author", {{"rating", 11.0}}, "maximum"},
        {"Book", {{"title", "X"}, {"year", "text"}}, "cannot hold"},
        {"Book", {{"year", 70'000}}, "wider"},
        {"Book", {{"pages", 1}}, "no property"},
        {"Book", {{"draft", "x"}}, "not stored"},
        {"Book", {{"tags", Value()}}, "cannot set"},
        {"Book", {{"title", NSExpression::expressionForKeyPath("author.name")}}, "stored attributes only"},
        {"Book", {{"title", NSExpression::expressionForKeyPath("year")}}, "its own type"},
        {"Book", {{"title", "X"}, {"author", Value(a)}}, "no such record"},
        {"Nothing", {}, "no entity"},
    };
    for (auto const& row : rows) {
        EXPECT_FALSE(update(row.entity, nullptr, row.values)) << row.message;
        ASSERT_TRUE(error) << row.message;
        EXPECT_NE(error->description().find(row.message), std::string::npos) << error->description();
    }
    EXPECT_EQ(books(), before);
}

TEST_P(BatchRequest, RelationshipsFollowTheToOne) {
    auto const other = inserted(context, "Author", {{"name", "Bea"}});
    for (auto const* title : {"1", "2", "3"})
        inserted(context, "Chapter", {{"title", title}})->setValueForKey(title[0] == '3' ? a : b, "book");
    ASSERT_TRUE(saves(context));
    ASSERT_TRUE(update("Book", where("year < 3"), {{"author", Value(other->objectID())}})) << error->description();
    ASSERT_TRUE(update("Book", where("year == 3"), {{"author", Value()}})) << error->description();
    ASSERT_TRUE(update("Chapter", nullptr, {{"book", Value(a)}})) << error->description();
    context.reset();
    EXPECT_EQ(members(*fetched(context, "Author", where("name == 'Bea'")).front(), "books"), "A,B");
    EXPECT_EQ(members(*fetched(context, "Author", where("name == 'Ann'")).front(), "books"), "");
    EXPECT_EQ(members(*fetched(context, "Book", where("title == 'A'")).front(), "chapters"), "3,1,2") << "newcomers stand last";
}

TEST_P(BatchRequest, DeletionLeavesNoDanglingLink) {
    auto const tag = inserted(context, "Tag", {{"name", "t"}});
    a->mutableSetValueForKey("tags").addObject(tag);
    b->mutableSetValueForKey("tags").addObject(tag);
    inserted(context, "Chapter", {{"title", "orphan"}})->setValueForKey(a, "book");
    inserted(context, "Award", {{"name", "w"}})->setValueForKey(author, "winner");
    ASSERT_TRUE(saves(context));
    auto const result = remove("Book", where("title == 'A' OR title == 'C'"));
    ASSERT_TRUE(result) << error->description();
    EXPECT_EQ(result->objectIDs().size(), 2u);
    ASSERT_TRUE(remove("Author", nullptr)) << "a denying rule is not asked";
    context.reset();
    EXPECT_EQ(books(), "B:2 ");
    EXPECT_FALSE(fetched(context, "Book").front()->valueForKey("author").object());
    EXPECT_EQ(members(*fetched(context, "Tag").front(), "books"), "B");
    auto const chapters = fetched(context, "Chapter");
    ASSERT_EQ(chapters.size(), 1u) << "nothing is cascaded";
    EXPECT_FALSE(chapters.front()->valueForKey("book").object());
}

TEST_P(BatchRequest, AllOfAnEntityGoAtOnceWithTheirLinks) {
    auto const tag = inserted(context, "Tag", {{"name", "t"}});
    for (auto const& book : {a, c}) book->mutableSetValueForKey("tags").addObject(tag);
    auto const chapter = inserted(context, "Chapter", {{"title", "orphan"}});
    chapter->setValueForKey(b, "book");
    ASSERT_TRUE(saves(context));
    auto const request = make<NSBatchDeleteRequest>(make<NSFetchRequest>("Book"));
    request->setResultType(NSBatchRequestResultType::Count);
    auto const result = context.executeRequest(*request, error);
    ASSERT_TRUE(result) << error->description();
    EXPECT_EQ(result->count(), 3);
    context.reset();
    EXPECT_EQ(books(), "");
    EXPECT_FALSE(fetched(context, "Chapter").front()->valueForKey("book").object());
    inserted(context, "Book", {{"title", "new"}});
    ASSERT_TRUE(saves(context));
    EXPECT_EQ(members(*fetched(context, "Tag").front(), "books"), "");
    EXPECT_EQ(members(*fetched(context, "Author").front(), "books"), "");
}

TEST_P(BatchRequest, DeletesByIdentityAndByOrderAndLimit) {
    auto const unsaved = inserted(context, "Book", {});
    auto request = make<NSBatchDeleteRequest>(std::vector{a->objectID(), author->objectID(), unsaved->objectID()});
    request->setResultType(NSBatchRequestResultType::Count);
    auto const result = context.executeRequest(*request, error);
    ASSERT_TRUE(result) << error->description();
    EXPECT_EQ(result->count(), 2);
    EXPECT_EQ(books(), "B:2 C:3 ");
    auto newest = make<NSFetchRequest>("Book");
    newest->setSortDescriptors({by("year", {.ascending = false})});
    newest->setFetchLimit(1);
    ASSERT_TRUE(context.executeRequest(*make<NSBatchDeleteRequest>(newest), error));
    EXPECT_EQ(books(), "B:2 ");
}

/// What no predicate of the library says.
class OfOddYears : public NSPredicate {
public:
    bool evaluateWithObject(Value const& object) const override {
        return object.objectAs<NSManagedObject>()->valueForKey("year").integer() % 2 == 1;
    }
};

TEST_P(BatchRequest, APredicateOfTheApplicationsOwnJudgesEachObject) {
    Ref<NSPredicate> const odd = make<OfOddYears>();
    auto const late = NSCompoundPredicate::andPredicateWithSubpredicates({odd, where("year > 1")});
    auto const even = NSCompoundPredicate::notPredicateWithSubpredicate(odd);
    for (auto const& other : {contextOver(library.coordinator), root}) EXPECT_EQ(countsOf(*other, {odd, late, even}), "2 1 1 ");
    auto const unsaved = inserted(context, "Book", {{"year", 5}});
    EXPECT_EQ(countsOf(context, {odd, late, even}), "3 2 1 ");
    context.rollback();
    EXPECT_FALSE(odd->isEqual(*make<OfOddYears>()));
    EXPECT_EQ(remove("Book", late)->objectIDs().size(), 1u);
    EXPECT_EQ(books(), "A:1 B:2 ");
    EXPECT_EQ(remove("Book", odd)->objectIDs().size(), 1u);
    EXPECT_EQ(books(), "B:2 ");
}

TEST_P(BatchRequest, AChangedCopyMeetsAConflictUnlessItsContextMerged) {
    auto const ids = [](auto const& result) { return ObjectIDsByChange{{NSUpdatedObjectsKey, result->objectIDs()}}; };
    a->setValueForKey("mine", "title");
    auto const first = update("Book", nullptr, {{"year", 50}});
    EXPECT_FALSE(saves(context));
    EXPECT_EQ(b->valueForKey("year").integer(), 2) << "contexts are not told";
    root->performBlockAndWait([&] {
        NSManagedObjectContext::mergeChangesFromRemoteContextSave(ids(first), std::vector{root});
        EXPECT_EQ(b->valueForKey("year").integer(), 50);
        EXPECT_EQ(a->valueForKey("title").text(), "mine");
        EXPECT_TRUE(saves(context));
    });
    EXPECT_EQ(books(), "B:50 C:50 mine:50 ");
    EXPECT_EQ(members(*author, "books"), "B,C,mine");
    auto const gone = remove("Book", where("title == 'B'"));
    root->performBlockAndWait([&] {
        NSManagedObjectContext::mergeChangesFromRemoteContextSave({{NSDeletedObjectsKey, gone->objectIDs()}}, std::vector{root});
        EXPECT_EQ(members(*author, "books"), "C,mine");
        EXPECT_TRUE(b->isDeleted());
    });
}

} // namespace
} // namespace Tessarin::tests
