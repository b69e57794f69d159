#include "Tessarin/platform/objectgraph/undo/UndoManager.h"
#include "tests/platform/objectgraph/context/Library.h"
#include <algorithm>
#include <map>
#include <string>

namespace Tessarin::tests {
namespace {

/// All that a context shows, a line for each object: "Book 3 title=A author=7 tags={1,2} chapters=[4,5]".
std::string shown(NSManagedObjectContext& context) {
    std::map<std::string, std::string> lines;
    for (auto const* name : {"Author", "Book", "Tag", "Icon", "Chapter", "Award"})
        for (auto const& object : fetched(context, name)) {
            auto const id = std::to_string(object->recordKey());
            auto& line = lines[object->entity().name() + " " + id];
            for (auto const* attribute : object->entity().attributes())
                line += " " + attribute->name() + "=" + object->valueForKey(attribute->name()).description();
            for (auto const* relationship : object->entity().relationships()) {
                std::vector<std::string> keys;
                auto const add = [&](Value const& value) {
                    if (auto const other = value.objectAs<NSManagedObject>()) keys.push_back(std::to_string(other->recordKey()));
                };
                auto const value = object->valueForKey(relationship->name());
                if (value.kind() == Value::Kind::Set)
                    for (auto const& each : value.set()) add(each);
                else if (value.kind() == Value::Kind::List)
                    for (auto const& each : value.list()) add(each);
                else
                    add(value);
                if (!relationship->isOrdered()) std::ranges::sort(keys);
                line += " " + relationship->name() + "=";
                for (auto const& key : keys) line += key + ",";
            }
        }
    std::string text;
    for (auto const& [name, line] : lines) text += name + line + "\n";
    return text;
}

Ref<NSManagedObject> named(NSManagedObjectContext& context, char const* entity, char const* key, char const* name) {
    auto const found = fetched(context, entity, NSPredicate::predicateWithFormat("%K == %@", key, name));
    return found.empty() ? nullptr : found.front();
}
Ref<NSManagedObject> book(NSManagedObjectContext& context, char const* title) { return named(context, "Book", "title", title); }
MutableObjectSet many(Ref<NSManagedObject> const& object, char const* key) { return object->mutableSetValueForKey(key); }

class Undo : public LibraryTest {
protected:
    Undo() {
        onRoot([&] {
            auto const a = inserted(*root, "Author", {{"name", "a"}}), b = inserted(*root, "Author", {{"name", "b"}});
            auto const red = inserted(*root, "Tag", {{"name", "red"}}), icon = inserted(*root, "Icon", {{"name", "i"}});
            red->setValueForKey(icon, "icon");
            for (auto const* title : {"A", "B", "C"}) {
                auto const each = inserted(*root, title[0] == 'C' ? "Novel" : "Book", {{"title", title}});
                each->setValueForKey(a, "author");
                many(each, "tags").addObject(red);
                for (auto const* name : {"1", "2", "3"})
                    many(each, "chapters").addObject(inserted(*root, "Chapter", {{"title", name}}));
            }
            many(book(*root, "A"), "related").addObject(book(*root, "B"));
            many(book(*root, "A"), "related").addObject(book(*root, "A"));
            save();
            undo = root->undoManager();
        });
    }
    void onRoot(FunctionRef<void()> work) { root->performBlockAndWait(work); }
    void save() { ASSERT_TRUE(root->save(error)) << error->localizedDescription(); }
    std::string here() {
        std::string text;
        onRoot([&] { text = shown(*root); });
        return text;
    }
    std::string stored() {
        auto const other = contextOver(library.coordinator);
        std::string text;
        other->performBlockAndWait([&] { text = shown(*other); });
        return text;
    }
    bool undone() {
        bool result = false;
        onRoot([&] { result = undo->undo(); });
        return result;
    }
    bool redone() {
        bool result = false;
        onRoot([&] { result = undo->redo(); });
        return result;
    }

    Ref<UndoManager> undo;
};
INSTANTIATE_TEST_SUITE_P(Stores, Undo, bothStores, storeName);

TEST_P(Undo, EveryEditGoesBackAndForthBeforeAndAfterSaves) {
    struct Row {
        char const* what;
        void (*edit)(NSManagedObjectContext&);
    };
    Row const rows[] = {
        {"attributes, one of them twice",
         [](auto& context) {
             auto const a = book(context, "A");
             a->setValueForKey("X", "title"), a->setValueForKey(7, "year"), a->setValueForKey(nullptr, "title");
         }},
        {"a new object with links",
         [](auto& context) {
             auto const made = inserted(context, "Book", {{"title", "N"}});
             made->setValueForKey(named(context, "Author", "name", "b"), "author");
             many(made, "tags").addObject(named(context, "Tag", "name", "red"));
             many(made, "chapters").addObject(fetched(context, "Chapter").front());
         }},
        {"objects made with links among them",
         [](auto& context) {
             auto const author = inserted(context, "Author", {{"name", "c"}}),
                        tag = inserted(context, "Tag", {{"name", "green"}});
             for (auto const* title : {"M", "N"}) {
                 auto const made = inserted(context, "Book", {{"title", title}});
                 made->setValueForKey(author, "author");
                 for (auto const& with : {tag, named(context, "Tag", "name", "red")}) many(made, "tags").addObject(with);
                 for (auto const& each : {book(context, "M"), book(context, "A")}) many(made, "related").addObject(each);
                 for (auto const* name : {"4", "5", "6"})
                     many(made, "chapters").insertObject(inserted(context, "Chapter", {{"title", name}}), 0);
             }
             many(book(context, "N"), "chapters").addObject(many(book(context, "M"), "chapters").allObjects()[1]);
         }},
        {"a to-one moves",
         [](auto& context) { book(context, "A")->setValueForKey(named(context, "Author", "name", "b"), "author"); }},
        {"to-ones exchange partners",
         [](auto& context) {
             auto const blue = inserted(context, "Tag", {{"name", "blue"}});
             blue->setValueForKey(fetched(context, "Icon").front(), "icon");
         }},
        {"many to many",
         [](auto& context) { many(named(context, "Tag", "name", "red"), "books").removeObject(book(context, "B")); }},
        {"self-inverse",
         [](auto& context) {
             many(book(context, "C"), "related").addObject(book(context, "A"));
             many(book(context, "A"), "related").removeObject(book(context, "A"));
         }},
        {"order",
         [](auto& context) {
             auto const chapters = many(book(context, "A"), "chapters");
             auto members = chapters.allObjects();
             auto own = chapters;
             own.moveObject(0, 2);
             own.removeObject(members[1]);
             own.insertObject(many(book(context, "B"), "chapters").allObjects().front(), 0);
         }},
        {"a cascade", [](auto& context) { context.deleteObject(*book(context, "A")); }},
        {"a cascade with members that were new",
         [](auto& context) {
             auto const a = book(context, "A");
             many(book(context, "B"), "chapters").insertObject(many(a, "chapters").allObjects().front(), 0);
             many(a, "chapters").insertObject(inserted(context, "Chapter", {{"title", "N"}}), 0);
             many(a, "chapters").moveObject(1, 2);
             context.deleteObject(*a);
         }},
        {"what leaves many", [](auto& context) { context.deleteObject(*named(context, "Author", "name", "a")); }},
        {"linked objects, the last first",
         [](auto& context) {
             for (auto const* entity : {"Chapter", "Novel", "Book", "Tag", "Author"})
                 for (auto const& each : fetched(context, entity)) context.deleteObject(*each);
         }},
        {"one-to-one goes with it", [](auto& context) { context.deleteObject(*named(context, "Tag", "name", "red")); }},
        {"changed, then deleted",
         [](auto& context) {
             auto const b = book(context, "B");
             b->setValueForKey("X", "title"), b->setValueForKey(named(context, "Author", "name", "b"), "author");
             many(b, "chapters").moveObject(2, 0);
             context.deleteObject(*b);
         }},
        {"made, saved, put in order and deleted",
         [](auto& context) {
             auto const made = inserted(context, "Book", {{"title", "N"}});
             for (auto const* name : {"4", "5"})
                 many(made, "chapters").addObject(inserted(context, "Chapter", {{"title", name}}));
             Ref<NSError> error;
             EXPECT_TRUE(context.save(error));
             many(made, "chapters").moveObject(0, 1);
             context.deleteObject(*made);
         }},
        {"made and deleted",
         [](auto& context) {
             context.deleteObject(*inserted(context, "Book", {{"title", "N"}}));
         }},
    };
    enum { Never = 0, AfterEdit = 1, AfterUndo = 2, AfterRedo = 4 };
    for (auto const& row : rows)
        for (int const saves :
             {Never + 0, AfterEdit + 0, AfterUndo + 0, AfterEdit | AfterUndo, AfterEdit | AfterUndo | AfterRedo}) {
            SCOPED_TRACE(std::string(row.what) + ", saves " + std::to_string(saves));
            auto const before = here();
            onRoot([&] { row.edit(*root); });
            bool const isNothing = !undo->canUndo();
            onRoot([&] {
                if (saves & AfterEdit) save();
            });
            auto const after = here();
            for (int round = 0; round < 2; ++round) {
                EXPECT_EQ(undone(), !isNothing);
                onRoot([&] {
                    if (saves & AfterUndo) save();
                });
                EXPECT_EQ(here(), before);
                if (saves & AfterUndo) {
                    EXPECT_EQ(stored(), before);
                }
                EXPECT_EQ(redone(), !isNothing);
                onRoot([&] {
                    if (saves & AfterRedo) save();
                });
                // Records that were never saved have other keys once they are.
                if (saves & AfterEdit) {
                    EXPECT_EQ(here(), after);
                }
                if (saves & AfterRedo) {
                    EXPECT_EQ(stored(), after);
                }
            }
            undone();
            onRoot([&] {
                save();
                undo->removeAll();
            });
            EXPECT_EQ(here(), before);
            EXPECT_EQ(stored(), before);
        }
}

TEST_P(Undo, ADeletedObjectComesBackAsItself) {
    onRoot([&] {
        auto const object = book(*root, "A");
        auto const id = object->objectID();
        root->deleteObject(*object);
        save();
        EXPECT_TRUE(undo->undo());
        EXPECT_EQ(book(*root, "A"), object);
        EXPECT_EQ(object->objectID(), id);
        EXPECT_TRUE(object->isInserted() && object->managedObjectContext() == root);
        save();
        object->setValueForKey(1, "year"); // a record like any other
        save();
    });
    auto const other = contextOver(library.coordinator);
    other->performBlockAndWait([&] { EXPECT_EQ(book(*other, "A")->valueForKey("year"), Value(1)); });
}

TEST_P(Undo, ADeletedListComesBackInItsOrderThoughOthersSavedMembersOfSuchLists) {
    onRoot([&] {
        many(book(*root, "A"), "chapters").moveObject(2, 0);
        save();
    });
    auto const before = here();
    onRoot([&] { root->deleteObject(*book(*root, "A")); });
    EXPECT_TRUE(undone());
    EXPECT_TRUE(redone()); // which lets go of each link
    auto const sibling = contextOver(library.coordinator);
    std::vector<Ref<NSManagedObjectID>> changed;
    sibling->performBlockAndWait([&] {
        auto const chapter = many(book(*sibling, "B"), "chapters").allObjects().front();
        for (auto const* title : {"other", "1"}) {
            chapter->setValueForKey(title, "title");
            ASSERT_TRUE(sibling->save(error));
        }
        changed.push_back(chapter->objectID());
    });
    NSManagedObjectContext::mergeChangesFromRemoteContextSave({{NSUpdatedObjectsKey, changed}}, std::vector{root});
    EXPECT_TRUE(undone());
    EXPECT_EQ(here(), before);
}

TEST_P(Undo, WhatADeletedListLostInTheSameSaveStaysAwayWhenTheListIsReadAgain) {
    auto const worker = library.worker();
    Ref<NSManagedObject> object;
    std::vector<Ref<NSManagedObjectID>> changed;
    worker->performBlockAndWait([&] {
        undo = worker->undoManager();
        object = book(*worker, "A");
        auto const red = named(*worker, "Tag", "name", "red");
        changed.push_back(red->objectID());
        many(object, "tags").removeObject(red);
    });
    worker->performBlockAndWait([&] {
        worker->deleteObject(*object);
        ASSERT_TRUE(worker->save(error));
        EXPECT_TRUE(undo->undo());
    });
    NSManagedObjectContext::mergeChangesFromRemoteContextSave({{NSUpdatedObjectsKey, changed}}, std::vector{worker});
    worker->performBlockAndWait([&] { EXPECT_EQ(many(object, "tags").count(), 0U); });
}

TEST_P(Undo, WhoeverJoinedADeletedListInTheStepStaysAwayWhenTheListIsReadAgain) {
    auto const worker = library.worker();
    Ref<NSManagedObject> object;
    std::vector<Ref<NSManagedObjectID>> changed;
    worker->performBlockAndWait([&] {
        undo = worker->undoManager();
        object = book(*worker, "A");
        changed.push_back(named(*worker, "Tag", "name", "red")->objectID());
        many(object, "tags").addObject(inserted(*worker, "Tag", {{"name", "blue"}}));
        ASSERT_TRUE(worker->save(error));
        worker->deleteObject(*object);
        ASSERT_TRUE(worker->save(error));
    });
    worker->performBlockAndWait([&] { EXPECT_TRUE(undo->undo()); });
    NSManagedObjectContext::mergeChangesFromRemoteContextSave({{NSUpdatedObjectsKey, changed}}, std::vector{worker});
    worker->performBlockAndWait([&] { EXPECT_EQ(many(object, "tags").count(), 1U); });
}

TEST_P(Undo, AnImportIsAStepAfterWhatTheTurnHadChangedBefore) {
    auto const worker = library.worker();
    onRoot([&] {
        book(*root, "A")->setValueForKey(2, "year");
        worker->performBlockAndWait([&] {
            worker->setUndoable("Import");
            book(*worker, "A")->setValueForKey(3, "year");
            ASSERT_TRUE(worker->save(error));
        });
    });
    for (int const year : {2, 1900}) {
        EXPECT_TRUE(undone());
        onRoot([&] { EXPECT_EQ(book(*root, "A")->valueForKey("year"), Value(year)); });
    }
}

TEST_P(Undo, WhatIsUndoneMayLeadToWhatAParentHadNotSaved) {
    auto const main = childOf(root), worker = childOf(main);
    auto const in = [&](Ref<NSManagedObjectContext> const& context, FunctionRef<void()> work) {
        context->performBlockAndWait(work);
        for (auto const& each : {context, main, root})
            each->performBlockAndWait([&] { ASSERT_TRUE(each->save(error)) << error->localizedDescription(); });
    };
    auto const requireOrder = [&](std::vector<Value> const& titles) {
        for (auto const& each : {worker, main, root, contextOver(library.coordinator)})
            each->performBlockAndWait([&] {
                std::vector<Value> found;
                for (auto const& chapter : many(book(*each, "N"), "chapters").allObjects())
                    found.push_back(chapter->valueForKey("title"));
                EXPECT_EQ(found, titles);
            });
    };
    main->performBlockAndWait([&] {
        auto const made = inserted(*main, "Book", {{"title", "N"}});
        for (auto const* title : {"1", "2", "3"})
            many(made, "chapters").addObject(inserted(*main, "Chapter", {{"title", title}}));
    });
    in(worker, [&] {
        undo = worker->undoManager();
        auto chapters = many(book(*worker, "N"), "chapters");
        chapters.moveObject(2, 0);
        worker->deleteObject(*chapters.allObjects()[1]);
    });
    requireOrder({"3", "2"});
    in(worker, [&] { EXPECT_TRUE(undo->undo()); });
    requireOrder({"1", "2", "3"});
    in(worker, [&] { EXPECT_TRUE(undo->redo()); });
    requireOrder({"3", "2"});
}

TEST_P(Undo, AChildMayChangeWhatAnUndoBroughtBack) {
    auto const main = childOf(root), worker = childOf(main);
    auto const in = [&](Ref<NSManagedObjectContext> const& context, FunctionRef<void()> work) {
        context->performBlockAndWait([&] {
            work();
            ASSERT_TRUE(context->save(error)) << error->localizedDescription();
        });
    };
    main->performBlockAndWait([&] { undo = main->undoManager(); });
    for (bool const isSaved : {false, true}) {
        SCOPED_TRACE(isSaved ? "its deletion is saved" : "its deletion is handed up");
        in(worker, [&] {
            worker->setUndoable("Tidy up");
            worker->deleteObject(*book(*worker, "A"));
        });
        if (isSaved) in(main, [] {});
        main->performBlockAndWait([&] { EXPECT_TRUE(undo->undo()); });
        in(worker, [&] { book(*worker, "A")->setValueForKey(7 + isSaved, "year"); });
        for (auto const& context : {main, root})
            in(context, [&] { EXPECT_EQ(book(*context, "A")->valueForKey("year"), Value(7 + isSaved)); });
        EXPECT_NE(stored().find("title=A year=" + std::to_string(7 + isSaved)), std::string::npos) << stored();
    }
    // Whose record was never saved comes back, too, although a child had changed it.
    Ref<NSManagedObject> made;
    main->performBlockAndWait([&] { made = inserted(*main, "Book", {{"title", "N"}}); });
    in(worker, [&] { book(*worker, "N")->setValueForKey(9, "year"); });
    main->performBlockAndWait([&] { main->deleteObject(*made); });
    main->performBlockAndWait([&] { EXPECT_TRUE(undo->undo()); });
    for (auto const& context : {main, root}) in(context, [&] { EXPECT_EQ(book(*context, "N")->valueForKey("year"), Value(9)); });
    EXPECT_NE(stored().find("title=N year=9"), std::string::npos) << stored();
}

TEST_P(Undo, AStepIsATurnOrTheOutermostGroup) {
    std::vector<std::string> told;
    ScopedConnection connection;
    auto const set = [&](int year) { book(*root, "A")->setValueForKey(year, "year"); };
    onRoot([&] {
        connection = undo->observe([&] {
            told.push_back((undo->canUndo() ? "u" + undo->undoActionName() : "-") +
                           (undo->canRedo() ? "r" + undo->redoActionName() : ""));
        });
    });
    onRoot([&] {
        undo->setActionName("One");
        set(1), set(2);
    });
    onRoot([&] {
        set(3);
        undo->beginGroup();
        set(4);
        undo->beginGroup();
        set(5);
        undo->endGroup();
    });
    onRoot([&] {
        set(6);
        undo->setActionName("Group");
        undo->endGroup();
    });
    onRoot([&] { undo->setActionName("Nothing"); });
    for (int const year : {3, 2, 1900}) {
        EXPECT_TRUE(undone());
        onRoot([&] { EXPECT_EQ(book(*root, "A")->valueForKey("year"), Value(year)); });
    }
    EXPECT_FALSE(undone());
    EXPECT_TRUE(redone());
    EXPECT_EQ(told, (std::vector<std::string>{"uOne", "u", "uGroup", "urGroup", "uOner", "-rOne", "uOner"}));
    onRoot([&] { undo->withoutRegistration([&] { set(9); }); });
    EXPECT_FALSE(undone()); // which left that alone
    onRoot([&] { set(10); });
    EXPECT_FALSE(redone());
    onRoot([&] {
        undo->setLimit(2);
        undo->removeAll();
    });
    for (int const year : {1, 2, 3}) onRoot([&] { set(year); });
    EXPECT_TRUE(undone() && undone());
    EXPECT_FALSE(undone());
    EXPECT_DEATH(onRoot([&] { undo->endGroup(); }), "was not begun");
    EXPECT_DEATH(onRoot([&] { undo->beginGroup(), undo->undo(); }), "is open");
}

TEST_P(Undo, WhatOthersDidStays) {
    auto const worker = library.worker();
    auto const elsewhere = [&](FunctionRef<void()> work) {
        worker->performBlockAndWait([&] {
            work();
            ASSERT_TRUE(worker->save(error));
        });
        onRoot([&] {});
    };
    onRoot([&] {
        auto const first = book(*root, "A");
        first->setValueForKey("X", "title"), first->setValueForKey(7, "year");
        book(*root, "B")->setValueForKey(nullptr, "author");
        root->deleteObject(*book(*root, "C"));
        inserted(*root, "Book", {{"title", "N"}});
        save();
    });
    elsewhere([&] {
        book(*worker, "X")->setValueForKey(8, "year");
        book(*worker, "B")->setValueForKey(named(*worker, "Author", "name", "b"), "author");
        worker->deleteObject(*book(*worker, "N"));
        worker->deleteObject(*named(*worker, "Tag", "name", "red"));
    });
    EXPECT_TRUE(undone());
    onRoot([&] {
        EXPECT_EQ(book(*root, "A")->valueForKey("year"), Value(8));
        EXPECT_EQ(book(*root, "B")->valueForKey("author").objectAs<NSManagedObject>()->valueForKey("name"), Value("b"));
        EXPECT_EQ(many(book(*root, "C"), "tags").count(), 0U);
        save();
    });
    EXPECT_TRUE(redone());
    onRoot([&] {
        EXPECT_FALSE(book(*root, "N"));
        save();
    });
    EXPECT_EQ(stored(), here());
}

TEST_P(Undo, WhatBothDeletedStaysGone) {
    auto const sibling = contextOver(library.coordinator);
    onRoot([&] { root->deleteObject(*book(*root, "B")); });
    auto const merging = listening(sibling, NSManagedObjectContextDidSaveNotification, [&](auto const& notification) {
        root->performBlockAndWait([&] { root->mergeChangesFromContextDidSaveNotification(*notification); });
    });
    sibling->performBlockAndWait([&] {
        sibling->deleteObject(*book(*sibling, "B"));
        sibling->deleteObject(*book(*sibling, "A"));
        ASSERT_TRUE(sibling->save(error));
    });
    EXPECT_FALSE(undone());
    onRoot([&] {
        save();
        EXPECT_FALSE(book(*root, "B"));
    });
    EXPECT_EQ(stored(), here());
}

TEST_P(Undo, AnImportIsOneStepWhereItAsksForThat) {
    auto const import = [&](std::optional<std::string> name, char const* doomed) {
        auto const worker = library.worker();
        worker->performBlockAndWait([&] {
            worker->setUndoable(std::move(name));
            for (int const year : {2, 3}) { // two saves are one step
                auto const made = inserted(*worker, "Book", {{"title", "N"}, {"year", year}});
                made->setValueForKey(named(*worker, "Author", "name", "b"), "author");
                many(made, "chapters").addObject(inserted(*worker, "Chapter", {{"title", "N"}}));
                auto const gone = book(*worker, doomed);
                many(book(*worker, "C"), "chapters").addObject(many(gone, "chapters").allObjects().front());
                many(gone, "chapters").addObject(inserted(*worker, "Chapter", {{"title", "gone"}}));
                if (year == 3) worker->deleteObject(*gone);
                book(*worker, "C")->setValueForKey(year, "year");
                ASSERT_TRUE(worker->save(error));
            }
        });
    };
    import({}, "A");
    onRoot([&] { save(); });
    EXPECT_FALSE(undone());
    auto const start = here();
    import("Import", "B");
    onRoot([&] { EXPECT_EQ(undo->undoActionName(), "Import"); });
    auto const after = here();
    EXPECT_TRUE(undone());
    EXPECT_EQ(here(), start);
    EXPECT_FALSE(undo->canUndo());
    onRoot([&] { save(); });
    EXPECT_EQ(stored(), start);
    EXPECT_TRUE(redone());
    onRoot([&] { save(); });
    EXPECT_EQ(here(), after);
    EXPECT_EQ(stored(), after);
}

TEST_P(Undo, AnImportWhoseSavesTakeEachOtherBackIsNoStep) {
    auto const start = here();
    for (bool const isWhole : {false, true}) {
        auto const worker = library.worker();
        worker->performBlockAndWait([&] {
            worker->setUndoable("Import");
            auto const a = book(*worker, "A"), b = book(*worker, "B"), red = named(*worker, "Tag", "name", "red");
            auto const made = inserted(*worker, "Chapter", {{"title", "N"}});
            many(a, "chapters").insertObject(made, 0);
            many(b, "tags").removeObject(red);
            for (auto const& each : {a, b}) each->setValueForKey(1, "year");
            ASSERT_TRUE(worker->save(error));
            a->setValueForKey(2, "year");
            ASSERT_TRUE(worker->save(error));
            worker->deleteObject(*made);
            many(b, "tags").addObject(red);
            a->setValueForKey(1900, "year");
            if (isWhole) b->setValueForKey(1900, "year");
            ASSERT_TRUE(worker->save(error));
        });
        onRoot([&] { EXPECT_EQ(undo->canUndo(), !isWhole); });
        EXPECT_EQ(undone(), !isWhole);
        EXPECT_EQ(here(), start);
    }
}

TEST_P(Undo, ATurnEndsAsUsualWhereAListCannotBeReadAnyMore) {
    onRoot([&] {
        auto const a = book(*root, "A");
        a->setValueForKey(7, "year");
        many(a, "chapters").moveObject(0, 2);
        auto const worker = library.worker();
        worker->performBlockAndWait([&] {
            many(book(*worker, "A"), "chapters").addObject(inserted(*worker, "Chapter", {{"title", "4"}}));
            ASSERT_TRUE(worker->save(error));
        });
        library.coordinator->closeStore();
    });
    EXPECT_TRUE(undo->canUndo());
}

TEST_P(Undo, ResetAndAWholeDeletionEmptyIt) {
    int told = 0;
    auto const connection = undo->observe([&] { ++told; });
    onRoot([&] { book(*root, "A")->setValueForKey(1, "year"); });
    onRoot([&] { root->reset(); });
    onRoot([&] {
        EXPECT_FALSE(undo->canUndo());
        EXPECT_EQ(told, 2);
    });
    onRoot([&] { book(*root, "A")->setValueForKey(1, "year"); });
    onRoot([&] { root->rollback(); });
    EXPECT_FALSE(undone()); // there is nothing left to take back
    auto context = contextOver(library.coordinator);
    auto const kept = context->undoManager();
    context.reset();
    EXPECT_FALSE(kept->canUndo() || kept->undo());
}

} // namespace
} // namespace Tessarin::tests
