// Relationships: order, delete rules. Both ends under random changes are the campaigns "levels" and "handed-up".
#include "Library.h"

#include <algorithm>

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

class Relationship : public LibraryTest {
protected:
    /// The same record, read back by a new context.
    Ref<NSManagedObject> reread(Ref<NSManagedObject> const& object) {
        readers.push_back(library.worker());
        return readers.back()->objectWithID(*object->objectID());
    }
    std::vector<Ref<NSManagedObjectContext>> readers;
};
INSTANTIATE_TEST_SUITE_P(Stores, Relationship, bothStores, storeName);

} // namespace

TEST_P(Relationship, AnOrderedOneKeepsItsOrder) {
    auto const book = inserted(*root, "Book", {{"title", "ordered"}});
    Objects chapters;
    for (auto const* title : {"one", "two", "three"}) chapters.push_back(inserted(*root, "Chapter", {{"title", title}}));
    book->setValueForKey(List{Value(chapters[2]), Value(chapters[0]), Value(chapters[1])}, "chapters");
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(members(*reread(book), "chapters"), "three,one,two");

    auto const worker = library.worker();
    auto const theBook = worker->objectWithID(*book->objectID());
    inserted(*worker, "Chapter", {{"title", "last"}, {"book", Value(theBook)}});
    auto all = theBook->mutableSetValueForKey("chapters").allObjects();
    EXPECT_EQ(listed(all, "title"), "three,one,two,last");
    std::ranges::reverse(all);
    theBook->mutableSetValueForKey("chapters").setObjects(all);
    theBook->mutableSetValueForKey("chapters").removeObject(all[1]);
    ASSERT_TRUE(saves(*worker));
    EXPECT_EQ(members(*reread(book), "chapters"), "last,one,three");
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(members(*reread(book), "chapters"), "last,one,three");
    EXPECT_EQ(members(*book, "chapters"), "last,one,three") << "the object that the root had all the time";
}

TEST_P(Relationship, BothEndsAgreeAtEveryLevelWhoeverWinsAConflict) {
    for (auto const policy : {NSMergePolicyType::MergeByPropertyStoreTrump, NSMergePolicyType::MergeByPropertyObjectTrump}) {
        auto const main = library.worker(), worker = childOf(main), sibling = childOf(main);
        main->setMergePolicy(make<NSMergePolicy>(policy));
        worker->setMergePolicy(make<NSMergePolicy>(policy));
        Objects authors;
        for (auto const* name : {"before", "mine", "theirs"}) authors.push_back(inserted(*root, "Author", {{"name", name}}));
        auto const book = inserted(*root, "Book", {{"author", Value(authors[0])}});
        ASSERT_TRUE(saves(*root));
        auto const requireAgreement = [&](NSManagedObjectContext& context, char const* when) {
            SCOPED_TRACE(when);
            context.performBlockAndWait([&] {
                auto const here = context.objectWithID(*book->objectID());
                for (auto const& author : authors) {
                    auto const owner = context.objectWithID(*author->objectID());
                    bool const isMember = owner->mutableSetValueForKey("books").containsObject(here);
                    auto const all = owner->mutableSetValueForKey("books").allObjects();
                    EXPECT_EQ(std::ranges::count(all, here) != 0, toOne(here, "author") == owner) << shown(*author, "name");
                    EXPECT_EQ(isMember, toOne(here, "author") == owner) << shown(*author, "name");
                }
            });
        };
        auto const move = [&](NSManagedObjectContext& context, std::size_t to) {
            context.performBlockAndWait([&] {
                auto const here = context.objectWithID(*book->objectID());
                for (auto const& author : authors) // which are read before
                    context.objectWithID(*author->objectID())->mutableSetValueForKey("books").count();
                here->setValueForKey(Value(context.objectWithID(*authors[to]->objectID())), "author");
            });
        };
        move(*worker, 1);
        move(*sibling, 2);
        ASSERT_TRUE(saves(*sibling));
        requireAgreement(*main, "one has handed up");
        ASSERT_TRUE(saves(*worker));
        for (auto const& context : {main, worker}) requireAgreement(*context, "both have");
        move(*root, 0);
        ASSERT_TRUE(saves(*root));
        requireAgreement(*main, "another has saved above");
        move(*main, 1);
        ASSERT_TRUE(saves(*main));
        requireAgreement(*main, "the conflict above is decided");
        requireAgreement(*root, "of the root");
        ASSERT_TRUE(saves(*root));
        for (auto const& context : {root, main, worker, sibling, library.worker()}) requireAgreement(*context, "in the end");
    }
}

TEST_P(Relationship, DeleteRulesWorkAtOnceAndDenialAtSave) {
    auto const author = inserted(*root, "Author", {{"name", "A"}});
    auto const book = inserted(*root, "Book", {{"title", "b"}, {"author", Value(author)}});
    auto const chapter = inserted(*root, "Chapter", {{"book", Value(book)}});
    auto const award = inserted(*root, "Award", {{"winner", Value(author)}});
    auto const tag = inserted(*root, "Tag", {{"name", "t"}});
    tag->mutableSetValueForKey("books").addObject(book);
    ASSERT_TRUE(saves(*root));

    root->deleteObject(*author);
    EXPECT_FALSE(toOne(book, "author")) << "nullified";
    EXPECT_FALSE(root->save(error));
    ASSERT_TRUE(error);
    EXPECT_NE(error->localizedDescription().find("Author.awards"), std::string::npos);
    EXPECT_TRUE(author->isDeleted() && root->hasChanges()) << "kept for the next try";
    root->deleteObject(*award); // both go: nothing denies any more
    root->deleteObject(*book);
    EXPECT_TRUE(chapter->isDeleted()) << "cascaded";
    EXPECT_EQ(members(*tag, "books"), "");
    ASSERT_TRUE(saves(*root));
    for (auto const* entity : {"Author", "Book", "Chapter", "Award"})
        EXPECT_EQ(fetched(*library.worker(), entity).size(), 0u) << entity;
    EXPECT_EQ(members(*reread(tag), "books"), "");
}

TEST_P(Relationship, AnInsertedObjectThatIsDeletedLeavesNoTrace) {
    auto const author = inserted(*root, "Author", {{"name", "A"}});
    ASSERT_TRUE(saves(*root));
    auto const book = inserted(*root, "Book", {{"author", Value(author)}});
    inserted(*root, "Chapter", {{"book", Value(book)}});
    root->deleteObject(*book);
    EXPECT_EQ(members(*author, "books"), "");
    EXPECT_TRUE(root->insertedObjects().empty());
    ASSERT_TRUE(saves(*root));
    EXPECT_EQ(fetched(*root, "Chapter").size() + fetched(*root, "Book").size(), 0u);
}
