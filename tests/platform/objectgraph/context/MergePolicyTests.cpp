// What a save does with records that somebody else changed or deleted meanwhile.
#include "Library.h"

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

using Type = NSMergePolicyType;

/// "title year author" as a context sees the record.
std::string seen(NSManagedObjectContext& context, NSManagedObjectID const& id) {
    std::string text;
    context.performBlockAndWait([&] {
        Ref<NSError> error;
        auto const book = context.existingObjectWithID(id, error);
        if (!book) return text = "gone", void();
        auto const author = toOne(book, "author");
        text = book->valueForKey("title").description() + " " + book->valueForKey("year").description() + " " +
               (author ? author->valueForKey("name").description() : "nobody");
    });
    return text;
}

/// What the store itself finds wrong with its links, orders and versions.
std::string findings(Library const& library) {
    Ref<NSError> error;
    std::string text;
    for (auto const& sentence : library.coordinator->verify(error)) text += sentence + "\n";
    return text + (error ? error->localizedDescription() : "");
}

/// "There" saves first. Here, a worker below a main and a root context; the policy is that of the context which meets the
/// conflict: a sibling's at the worker, another coordinator's where the root writes.
struct Stage {
    Stage(bool areSiblings, char const* store, Type type)
        : library(store),
          second(areSiblings || store == std::string("InMemory") ? nullptr : std::make_unique<Library>(store, &library)) {
        root = contextOver(second ? second->coordinator : library.coordinator);
        bool const isFlat = !areSiblings && !second; // further down, they would see each other's rows
        main = isFlat ? root : childOf(root);
        worker = isFlat ? root : childOf(main);
        there = areSiblings ? childOf(main) : library.root;
        meets = areSiblings ? worker : root;
        meets->setMergePolicy(make<NSMergePolicy>(type));
        auto const first = inserted(*library.root, "Author", {{"name", "first"}});
        auto const book = inserted(*library.root, "Book", {{"title", "old"}, {"year", 1}, {"author", Value(first)}});
        inserted(*library.root, "Author", {{"name", "second"}});
        EXPECT_TRUE(saves(*library.root));
        uri = book->objectID()->URIRepresentation();
        theirs = at(*there);
        held = at(*main);
        mine = at(*worker);
        id = mine->objectID();
        for (auto const& each : {theirs, held, mine}) each->valueForKey("title");
    }
    Ref<NSManagedObject> at(NSManagedObjectContext& context) const {
        return context.objectWithID(*context.persistentStoreCoordinator()->managedObjectIDForURIRepresentation(uri));
    }
    /// Saves there, then here level by level: the error where the conflict is met, if any.
    Ref<NSError> save() const {
        EXPECT_TRUE(saves(*there));
        for (auto const& context : {worker, main, root}) {
            Ref<NSError> error;
            context->performBlockAndWait([&] { context->save(error); });
            if (!error) continue;
            EXPECT_EQ(context, meets);
            return error;
        }
        return nullptr;
    }

    Library library;
    std::unique_ptr<Library> second;
    Ref<NSManagedObjectContext> root, main, worker, there, meets;
    NSURL uri = NSURL::fileURLWithPath("/");
    Ref<NSManagedObjectID> id; // of all three
    Ref<NSManagedObject> theirs, held, mine;
};

struct Setting {
    char const* name;
    bool areSiblings;
    char const* store;
};
Setting const settings[] = {{"siblings, SQLite", true, "SQLite"},
                            {"siblings, in memory", true, "InMemory"},
                            {"two coordinators, one file", false, "SQLite"},
                            {"two roots, in memory", false, "InMemory"}};

} // namespace

TEST(MergePolicy, DecidesWhatBecomesOfARecordThatBothTouched) {
    enum class Does { SameAndOther, Other, Delete };
    struct {
        char const* what;
        Does there, here;
        char const* expected[5]; // by policy
        char const* overruled[5];
    } const rows[] = {
        {"both changed the title",
         Does::SameAndOther,
         Does::SameAndOther,
         {"refused: theirs 2 first", "theirs 2 second", "ours 2 second", "ours 1 second", "theirs 2 first"},
         {"", "own title ours>theirs", "theirs title theirs>ours", "theirs title theirs>ours; theirs year 2>1",
          "own author second>first; own title ours>theirs"}},
        {"other properties",
         Does::Other,
         Does::SameAndOther,
         {"refused: old 2 first", "ours 2 second", "ours 2 second", "ours 1 second", "old 2 first"},
         {"", "", "", "theirs year 2>1", "own author second>first; own title ours>old"}},
        {"deleted there",
         Does::Delete,
         Does::SameAndOther,
         {"refused: gone", "gone", "ours 1 second", "ours 1 second", "gone"},
         {"", "own author second>-; own title ours>-", "theirs deletion", "theirs deletion",
          "own author second>-; own title ours>-"}},
        {"deleted here",
         Does::SameAndOther,
         Does::Delete,
         {"refused: theirs 2 first", "theirs 2 first", "gone", "gone", "theirs 2 first"},
         {"", "own deletion", "theirs title theirs>-; theirs year 2>-", "theirs title theirs>-; theirs year 2>-",
          "own deletion"}},
        {"deleted on both sides", Does::Delete, Does::Delete, {"gone", "gone", "gone", "gone", "gone"}, {"", "", "", "", ""}},
    };
    for (auto const& [name, areSiblings, store] : settings)
        for (auto const& row : rows)
            for (int policy = 0; policy < 5; ++policy) {
                SCOPED_TRACE(std::string{name} + ", " + row.what + ", policy " + std::to_string(policy));
                Stage stage(areSiblings, store, static_cast<Type>(policy));
                if (row.there == Does::Delete) stage.there->deleteObject(*stage.theirs);
                if (row.there == Does::SameAndOther) stage.theirs->setValueForKey("theirs", "title");
                if (row.there == Does::SameAndOther || row.there == Does::Other) stage.theirs->setValueForKey(2, "year");
                if (row.here == Does::Delete) stage.worker->deleteObject(*stage.mine);
                if (row.here == Does::SameAndOther) {
                    stage.mine->setValueForKey("ours", "title");
                    stage.mine->setValueForKey(Value(fetched(*stage.worker, "Author", where("name == 'second'")).front()),
                                               "author");
                }
                std::string expected = row.expected[policy];
                OverruleLog log;
                auto const error = stage.save();
                EXPECT_EQ(log.text(), row.overruled[policy]);
                EXPECT_EQ(static_cast<bool>(error), expected.starts_with("refused: "));
                auto const& id = *stage.id; // corrections may be on their way to the object
                if (error) {
                    EXPECT_EQ(error->code(), NSManagedObjectMergeError);
                    EXPECT_TRUE(stage.meets->hasChanges()) << "nothing was forgotten";
                    stage.meets->setMergePolicy(NSRollbackMergePolicy());
                    EXPECT_FALSE(stage.save());
                    expected = expected.substr(9);
                }
                for (auto const& context : {stage.worker, stage.main, stage.root, childOf(stage.main)})
                    EXPECT_EQ(seen(*context, id), expected);
                EXPECT_TRUE(expected != "gone" || !stage.mine->managedObjectContext());
                if (store != std::string("SQLite")) continue;
                Library fresh(store, &stage.library);
                EXPECT_EQ(seen(*fresh.root, *fresh.coordinator->managedObjectIDForURIRepresentation(stage.uri)), expected)
                    << "in the file";
                auto const author = expected.ends_with("second") ? "second" : "first";
                auto const title = expected == "gone" ? "" : expected.substr(0, expected.find(' '));
                EXPECT_EQ(members(*fetched(*stage.worker, "Author", where("name == %@", author)).front(), "books"), title);
                EXPECT_EQ(findings(stage.library), "");
            }
}

TEST(MergePolicy, AnErrorSaysWhichRecordsAndWhatTheyWere) {
    for (auto const& [name, areSiblings, store] : settings) {
        SCOPED_TRACE(name);
        Stage stage(areSiblings, store, Type::Error);
        stage.meets->setMergePolicy(nullptr); // the same
        stage.theirs->setValueForKey("theirs", "title");
        stage.mine->setValueForKey("ours", "title");
        auto const error = stage.save();
        ASSERT_TRUE(error);
        auto const book = "Book/p" + std::to_string(stage.mine->recordKey());
        EXPECT_EQ(error->localizedDescription(), "Changed elsewhere since it was read: " + book + " (title)");
        auto const conflict = error->userInfo()[NSConflictListKey].list().front().objectAs<NSMergeConflict>();
        EXPECT_EQ(conflict->sourceObject(), stage.at(*stage.meets));
        EXPECT_EQ(conflict->sourceObject()->valueForKey("title"), Value("ours"));
        EXPECT_EQ(conflict->objectSnapshot()["title"], Value("old"));
        EXPECT_EQ(conflict->objectSnapshot()["author"].objectAs<NSManagedObjectID>()->entity().name(), "Author");
        EXPECT_EQ((*conflict->persistedSnapshot())["title"], Value("theirs"));
        EXPECT_EQ(conflict->newVersionNumber(), conflict->oldVersionNumber() + 1);

        stage.there->deleteObject(*stage.theirs);
        auto const again = stage.save();
        ASSERT_TRUE(again);
        EXPECT_EQ(again->localizedDescription(), "Changed elsewhere since it was read: " + book + " (deleted there)");
        auto const deleted = again->userInfo()[NSConflictListKey].list().front().objectAs<NSMergeConflict>();
        EXPECT_FALSE(deleted->persistedSnapshot());
        EXPECT_EQ(deleted->newVersionNumber(), 0u);
    }
}

TEST(MergePolicy, AnObjectThatWasRefreshedWinsOverWhatItWasRefreshedWith) {
    Stage stage(true, "SQLite", Type::Error);
    stage.theirs->setValueForKey("theirs", "title");
    stage.theirs->setValueForKey(2, "year");
    stage.mine->setValueForKey("ours", "title");
    EXPECT_TRUE(stage.save());
    stage.worker->refreshObject(*stage.mine, true);
    EXPECT_FALSE(stage.save());
    EXPECT_EQ(seen(*stage.root, *stage.mine->objectID()), "ours 2 first");
}

TEST(MergePolicy, ASubclassDecidesItself) {
    for (auto const& [name, areSiblings, store] : settings) {
        SCOPED_TRACE(name);
        Stage stage(areSiblings, store, Type::Error);
        stage.meets->setMergePolicy(make<SummingPolicy>("year"));
        stage.theirs->setValueForKey(11, "year");
        stage.mine->setValueForKey(101, "year");
        EXPECT_FALSE(stage.save());
        for (auto const& context : {stage.worker, stage.main})
            EXPECT_EQ(seen(*context, *stage.mine->objectID()), "old 111 first");
    }
}

TEST(MergePolicy, WhatItThrowsReachesWhoSavesAndLeavesTheChangesToTheirObjects) {
    for (auto const& [name, areSiblings, store] : settings) {
        SCOPED_TRACE(name);
        Stage stage(areSiblings, store, Type::Error);
        auto const policy = make<SummingPolicy>("year");
        policy->meanwhile = [] { throw std::runtime_error("undecided"); };
        stage.meets->setMergePolicy(policy);
        stage.theirs->setValueForKey(11, "year");
        auto const mine = stage.at(*stage.meets);
        mine->setValueForKey(101, "year");
        EXPECT_TRUE(saves(*stage.there));
        stage.meets->performBlockAndWait([&] {
            Ref<NSError> error;
            EXPECT_THROW(stage.meets->save(error), std::runtime_error);
            EXPECT_TRUE(stage.meets->hasChanges());
            stage.meets->rollback();
            EXPECT_FALSE(stage.meets->hasChanges());
            stage.meets->insertNewObject("Tag");
            EXPECT_TRUE(stage.meets->save(error));
        });
        EXPECT_EQ(seen(*stage.meets, *mine->objectID()).find("101"), std::string::npos);
    }
}

TEST(MergePolicy, CorrectionsReachLevelsBelowUnderWhatIsUnsavedThere) {
    Stage stage(false, "SQLite", Type::MergeByPropertyStoreTrump);
    auto const other = childOf(stage.main);
    auto const bystander = stage.at(*other);
    bystander->setValueForKey(7, "year");
    bystander->valueForKey("title");
    stage.theirs->setValueForKey("theirs", "title");
    stage.mine->setValueForKey("ours", "title");
    std::string heard;
    auto listener = listening(stage.main, NSManagedObjectContextObjectsDidChangeNotification,
                              [&](auto const&) { heard = stage.held->valueForKey("title").description(); });
    EXPECT_FALSE(stage.save());
    dispatch_sync(stage.main->queue(), [] {}); // nobody asks the main context to do anything
    listener.reset();
    EXPECT_EQ(heard, "theirs");
    other->performBlockAndWait([&] {
        EXPECT_EQ(bystander->valueForKey("title"), Value("theirs"));
        EXPECT_EQ(bystander->valueForKey("year"), Value(7));
        EXPECT_TRUE(saves(*other)) << "nobody else changed the year";
    });
}

TEST(MergePolicy, ACorrectionDoesNotHideAConflictFromWhatIsUnsavedBelow) {
    Stage stage(false, "SQLite", Type::MergeByPropertyStoreTrump);
    auto const other = childOf(stage.main);
    auto const bystander = stage.at(*other);
    bystander->setValueForKey("mine", "title");
    stage.theirs->setValueForKey("theirs", "title");
    stage.mine->setValueForKey("ours", "title");
    EXPECT_FALSE(stage.save());
    EXPECT_EQ(codeOfSave(*other), NSManagedObjectMergeError);
    EXPECT_EQ(shown(*bystander, "title"), Value("mine"));
}

TEST(MergePolicy, ARecordWhoseDeletionIsGivenUpKeepsItsLinksAtBothEnds) {
    Library there("SQLite"), here("SQLite", &there);
    auto const book = inserted(*there.root, "Book", {{"title", "A"}}), other = inserted(*there.root, "Book", {{"title", "B"}});
    auto const author = inserted(*there.root, "Author", {{"name", "W"}}), tag = inserted(*there.root, "Tag", {{"name", "T"}});
    for (auto const& each : {book, other}) each->setValueForKey(author, "author");
    book->mutableSetValueForKey("related").addObject(other);
    book->mutableSetValueForKey("tags").addObject(tag);
    ASSERT_TRUE(saves(*there.root));
    here.root->setMergePolicy(make<NSMergePolicy>(Type::MergeByPropertyStoreTrump));
    auto const mine = fetched(*here.root, "Book", nullptr, {by("title")});
    for (auto const& each : mine) EXPECT_EQ(members(*each, "related").size(), 1u);
    auto const mineTag = fetched(*here.root, "Tag").front();
    here.root->deleteObject(*mine[0]);
    here.root->deleteObject(*mineTag);
    here.root->deleteObject(*fetched(*here.root, "Author").front());
    author->setValueForKey(5, "rating");
    book->setValueForKey("A again", "title");
    tag->setValueForKey("T again", "name");
    ASSERT_TRUE(saves(*there.root));
    ASSERT_TRUE(saves(*here.root));
    EXPECT_EQ(findings(here), "");
    EXPECT_EQ(members(*mine[1], "related"), "A again");
    EXPECT_EQ(members(*mineTag, "books"), "A again");
    auto const fresh = Library("SQLite", &there).root;
    for (auto const& [entity, key, seen] : {std::tuple{"Book", "related", "B,A again"},
                                            {"Book", "tags", "T again,"},
                                            {"Tag", "books", "A again"},
                                            {"Author", "books", "A again,B"}}) {
        std::string text;
        for (auto const& each : fetched(*fresh, entity, nullptr, {by(entity == std::string("Book") ? "title" : "name")}))
            text += (text.empty() ? "" : ",") + members(*each, key, key == std::string("tags") ? "name" : "title");
        EXPECT_EQ(text, seen) << key;
    }
}

TEST(MergePolicy, ALinkThatWasCutElsewhereThanByADeletionThatIsGivenUpStaysCut) {
    struct {
        char const* kind;
        bool isCutByOthers; // or here, before the deletion
    } const rows[] = {{"SQLite", false}, {"InMemory", false}, {"SQLite", true}, {"InMemory", true}};
    for (auto const& [kind, isCutByOthers] : rows) {
        Library library(kind);
        auto const author = inserted(*library.root, "Author", {{"name", "W"}});
        auto const book = inserted(*library.root, "Book", {{"title", "A"}, {"author", Value(author)}});
        ASSERT_TRUE(saves(*library.root));
        library.root->performBlockAndWait([&] { library.root->setMergePolicy(NSMergeByPropertyStoreTrumpMergePolicy()); });
        auto const worker = library.worker(), other = contextOver(library.coordinator);
        auto const& cutting = isCutByOthers ? other : worker;
        cutting->performBlockAndWait([&] { cutting->objectWithID(*book->objectID())->setValueForKey(Value(), "author"); });
        ASSERT_TRUE(isCutByOthers || saves(*worker));
        worker->performBlockAndWait([&] { worker->deleteObject(*worker->objectWithID(*author->objectID())); });
        ASSERT_TRUE(saves(*worker));
        other->performBlockAndWait([&] { other->objectWithID(*author->objectID())->setValueForKey("changed", "name"); });
        ASSERT_TRUE(saves(*other));
        ASSERT_TRUE(saves(*library.root));
        EXPECT_EQ(fetched(*contextOver(library.coordinator), "Author").size(), 1u) << "the deletion is given up";
        auto const fresh = contextOver(library.coordinator);
        fresh->performBlockAndWait(
            [&] { EXPECT_FALSE(toOne(fresh->objectWithID(*book->objectID()), "author")) << kind << isCutByOthers; });
    }
}

TEST(MergePolicy, ADeletionIsNotGivenUpBecauseWhatTheRecordLedToWasDeleted) {
    for (auto const& [name, areSiblings, store] : settings) {
        Stage stage(areSiblings, store, Type::MergeByPropertyStoreTrump);
        stage.there->deleteObject(*toOne(stage.theirs, "author"));
        stage.worker->deleteObject(*stage.mine);
        EXPECT_FALSE(stage.save());
        EXPECT_EQ(seen(*stage.root, *stage.id), "gone") << name;
    }
}

/// Decides tags by one type, all else by another.
class SplitPolicy : public NSMergePolicy {
public:
    bool resolveConflicts(std::vector<Ref<NSMergeConflict>> const& conflicts, Ref<NSError>&) override {
        for (auto const& each : conflicts) each->resolve(each->sourceObject()->entity().name() == "Tag" ? tags_ : mergeType());
        return true;
    }

protected:
    using NSMergePolicy::init;
    virtual void init(Type tags, Type others) {
        init(others);
        tags_ = tags;
    }

private:
    Type tags_ = Type::Error;
};

TEST(MergePolicy, BothEndsOfALinkOfOneToOneAreDecidedAlike) {
    std::string const names[] = {"none", "a", "b", "c"};
    constexpr auto theirs = Type::MergeByPropertyStoreTrump, ours = Type::MergeByPropertyObjectTrump;
    struct {
        char const* store;
        Type tags, icons;
    } const ways[] = {
        {"InMemory", theirs, theirs}, {"SQLite", ours, ours}, {"InMemory", ours, theirs}, {"InMemory", theirs, ours}};
    for (auto const& [store, tags, icons] : ways)
        for (auto const& before : {names[0], names[1]})
            for (auto const& there : names)
                for (auto const& here : names) {
                    SCOPED_TRACE(std::string(store) + ": " + before + " there " + there + ", here " + here);
                    Library const library(store);
                    auto const worker = library.worker(), other = contextOver(library.coordinator);
                    for (auto const& each : names) inserted(*library.root, "Icon", {{"name", each}});
                    inserted(*library.root, "Tag", {});
                    auto const lead = [](NSManagedObjectContext& context, std::string const& name) {
                        auto const icon = fetched(context, "Icon", NSPredicate::predicateWithFormat("name == %@", name)).at(0);
                        change(*fetched(context, "Tag").at(0), name == "none" ? Value() : Value(icon), "icon");
                    };
                    lead(*library.root, before);
                    ASSERT_TRUE(saves(*library.root));
                    worker->setMergePolicy(make<SplitPolicy>(tags, icons));
                    lead(*worker, here), lead(*other, there);
                    ASSERT_TRUE(saves(*other) && saves(*worker) && saves(*library.root));
                    auto const wins = tags == theirs ? there : here;
                    auto const expected = there == before ? here : here == before ? there : wins;
                    auto const fresh = contextOver(library.coordinator);
                    for (auto const& context : {fresh, worker, library.root}) {
                        auto const tag = fetched(*context, "Tag").at(0);
                        for (auto const& icon : fetched(*context, "Icon"))
                            EXPECT_EQ(shown(*icon, "tag").objectAs<NSManagedObject>() == tag,
                                      shown(*icon, "name") == Value(expected) && expected != "none");
                    }
                    EXPECT_EQ(findings(library), "");
                }
}

TEST(MergePolicy, EndsOfALinkOfOneToOneThatAreDecidedFromDifferentSidesAgree) {
    Library const library("SQLite");
    auto const worker = library.worker(), other = contextOver(library.coordinator);
    for (auto const* each : {"a", "c"}) inserted(*library.root, "Icon", {{"name", each}});
    for (auto const* each : {"T", "U", "V"}) inserted(*library.root, "Tag", {{"name", each}});
    auto const named = [](NSManagedObjectContext& context, char const* entity, char const* name) {
        return fetched(context, entity, NSPredicate::predicateWithFormat("name == %@", name)).at(0);
    };
    auto const lead = [&](NSManagedObjectContext& context, char const* tag, char const* icon) {
        change(*named(context, "Tag", tag), icon ? Value(named(context, "Icon", icon)) : Value(), "icon");
    };
    lead(*library.root, "T", "c"), lead(*library.root, "U", "a");
    ASSERT_TRUE(saves(*library.root));
    worker->setMergePolicy(make<SplitPolicy>(Type::MergeByPropertyObjectTrump, Type::MergeByPropertyStoreTrump));
    lead(*worker, "T", nullptr), lead(*worker, "V", "a");
    lead(*other, "T", "a");
    ASSERT_TRUE(saves(*other) && saves(*worker) && saves(*library.root));
    EXPECT_EQ(findings(library), "") << "of T it was decided that it has none, of a that T has it";
    auto const fresh = contextOver(library.coordinator);
    for (auto const& [entity, format] : {std::pair("Icon", "tag.name == 'T'"), std::pair("Tag", "icon.name == 'a'")})
        EXPECT_EQ(fetched(*fresh, entity, NSPredicate::predicateWithFormat(format)).size(), 1u) << format;
}
