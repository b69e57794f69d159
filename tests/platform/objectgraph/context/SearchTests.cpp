#include "Tessarin/platform/objectgraph/context/ManagedObject.h"
#include "Tessarin/platform/objectgraph/context/SearchExcerpt.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/objectgraph/query/SearchRank.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include "tests/support/Contexts.h"
#include "tests/support/TemporaryFolder.h"

namespace Tessarin::tests {
namespace {

using Type = NSAttributeType;

ModelBuilder notesModel(bool titles = true, bool texts = true) {
    return std::move(ModelBuilder()
                         .entity("Note")
                         .attribute("title", Type::String, {.fullText = titles})
                         .attribute("text", Type::String, {.fullText = texts}));
}

/// Notes in a file, each given as "title: text".
class SearchedFile : public testing::Test {
protected:
    void open(ModelBuilder const& model = notesModel()) {
        context = nullptr;
        context = contextOver(coordinatorOver(model.build(), NSSQLiteStoreType, folder.url("notes.db")));
    }
    void add(std::initializer_list<char const*> notes) {
        for (std::string const note : notes) {
            auto const colon = note.find(": ");
            inserted(*context, "Note", {{"title", note.substr(0, colon)}, {"text", note.substr(colon + 2)}});
        }
        ASSERT_TRUE(saves(*context));
    }
    std::string found(char const* format, std::vector<Ref<NSSortDescriptor>> sort = {}, std::size_t limit = 0) {
        std::string titles;
        for (auto const& note : fetched(*context, "Note", NSPredicate::predicateWithFormat(format), std::move(sort), limit))
            context->performBlockAndWait([&] { titles += note->valueForKey("title").description(); });
        return titles;
    }
    /// What another tool does.
    void run(std::string const& sql) const { SQLite::Connection(folder.path("notes.db")).execute(sql); }
    /// An index without words shows who asks it: there nothing is found.
    void empty() const { run("INSERT INTO tessarin_search_1 (tessarin_search_1) VALUES ('delete-all')"); }
    std::string findings() {
        Ref<NSError> error;
        std::string text;
        for (auto const& finding : context->persistentStoreCoordinator()->verify(error)) text += finding;
        return text + (error ? error->description() : "");
    }

    TemporaryFolder folder;
    Ref<NSManagedObjectContext> context;
};

TEST_F(SearchedFile, AnIndexServesWhatItCanAndNothingElse) {
    open();
    add({"A: some Wörds here", "B: words", "C: others"});
    struct {
        char const* format;
        bool isServed;
    } const table[] = {
        {"text FINDS 'word'", true},
        {"NOT (text FINDS 'zebra') AND {title, text} FINDS 'some word'", true},
        {"text BEGINSWITH[cd] 'Some wor'", true},
        {"text BEGINSWITH[cd] 'so'", true},
        {"text CONTAINS[cd] 'me words'", true},
        {"text ENDSWITH[cd] 's here'", true},
        {"text ==[cd] 'SOME WORDS HERE'", true},
        {"text CONTAINS[cd] 'ord'", false}, // within a word
        {"text BEGINSWITH[c] 'some'", false},
        {"text BEGINSWITH[cd] 'söme'", false}, // another script's letters are compared, not looked up
        {"text LIKE[cd] 'some*'", false},
    };
    for (auto const& [format, isServed] : table) EXPECT_EQ(found(format).substr(0, 1), "A") << format;
    empty();
    open(); // without rows of before
    for (auto const& [format, isServed] : table) EXPECT_EQ(found(format).empty(), isServed) << format;
}

TEST_F(SearchedFile, RanksPutTheBestFirstWhetherSavedOrNot) {
    open();
    add({"A: one word among many others here", "B: word word", "C: nothing", "D: a word, rare"});
    auto const byRank = std::vector{searchRank()};
    EXPECT_EQ(found("text FINDS 'word'", byRank), "BDA");
    EXPECT_EQ(found("text FINDS 'word'", {searchRank()->reversedSortDescriptor()}, 2), "AD");
    inserted(*context, "Note", {{"title", "E"}, {"text", "word word word"}});
    inserted(*context, "Note", {{"title", "F"}, {"text", "so many others beside one single word here that it counts little"}});
    EXPECT_EQ(found("text FINDS 'word'", byRank), "EBDAF");
    ASSERT_TRUE(saves(*context));
    EXPECT_EQ(found("text FINDS 'word'", byRank), "EBDAF");
    EXPECT_EQ(found("{title, text} FINDS ''", byRank), "ABCDEF"); // all alike
    for (auto const* format : {"text == 'word'", "text FINDS 'a' OR text FINDS 'b'", "NOT text FINDS 'a'", "TRUEPREDICATE"}) {
        auto const request = make<NSFetchRequest>("Note");
        request->setPredicate(NSPredicate::predicateWithFormat(format));
        request->setSortDescriptors(byRank);
        Ref<NSError> error;
        context->performBlockAndWait([&] { context->executeFetchRequest(*request, error); });
        ASSERT_TRUE(error) << format;
        EXPECT_NE(error->localizedDescription().find("no rank without a FINDS"), std::string::npos);
    }
}

TEST_F(SearchedFile, IsBroughtUpAtOpeningAndOnlyWhereItChanged) {
    open(notesModel(false, false));
    add({"A: word", "B: other"});
    EXPECT_EQ(found("text FINDS 'word'"), "A"); // without an index, too
    open();
    EXPECT_EQ(found("{title, text} FINDS 'word a'"), "A");
    EXPECT_EQ(findings(), "");
    empty();
    open(notesModel().attribute("further", Type::Integer32)); // not of its business: it is left as it is
    EXPECT_EQ(found("text FINDS 'word'"), "");
    open(notesModel(false, true));
    EXPECT_EQ(found("text FINDS 'word'"), "A");
    run("UPDATE tessarin_store SET value = 'other rules' WHERE key = 'search'");
    empty();
    EXPECT_NE(findings(), "");
    context = nullptr;
    {
        auto const coordinator = make<NSPersistentStoreCoordinator>(notesModel(false, true).build());
        Ref<NSError> error;
        coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, folder.url("notes.db"),
                                                {{"NSReadOnlyPersistentStoreOption", true}}, error);
        ASSERT_FALSE(error);
        context = contextOver(coordinator); // cannot make it anew, and does not ask it
        EXPECT_EQ(found("text FINDS 'wor'", {searchRank()}), "A");
    }
    open(notesModel(false, true));
    EXPECT_EQ(found("text FINDS 'word'"), "A");
    EXPECT_EQ(findings(), "");
    open(notesModel(false, false));
    auto const left =
        SQLite::Connection(folder.path("notes.db")).integer("SELECT count(*) FROM sqlite_schema WHERE name GLOB '*search*'");
    EXPECT_EQ(left, 0);
}

TEST_F(SearchedFile, WhatAnotherToolWroteIsPutRight) {
    open();
    add({"A: one two three", "B: four five"});
    run("UPDATE Note SET text = 'quite other words, and many more of them than before', version = version + 1");
    EXPECT_EQ(findings(), "Note: the index of words does not agree with the texts.");
    open();
    for (auto const& note : fetched(*context, "Note"))
        context->performBlockAndWait([&] { note->setValueForKey(Value("seven"), "text"); });
    EXPECT_TRUE(saves(*context));
    context->performBlockAndWait([&] { context->deleteObject(*fetched(*context, "Note").front()); });
    EXPECT_TRUE(saves(*context));
    EXPECT_EQ(found("text FINDS 'sev'"), "B");
    context = nullptr;
    Ref<NSError> error;
    auto const coordinator = make<NSPersistentStoreCoordinator>(notesModel().build());
    EXPECT_TRUE(coordinator->salvageStoreAtURL(folder.url("notes.db"), folder.url("salvaged.db"), error)) << error->description();
    context = contextOver(coordinatorOver(notesModel().build(), NSSQLiteStoreType, folder.url("salvaged.db")));
    EXPECT_EQ(found("text FINDS 'sev'"), "B");
    EXPECT_EQ(findings(), "");
}

TEST_F(SearchedFile, ExchangedUniqueValuesLeaveTheOthersAndTheIndexInOrder) {
    open(notesModel().unique({"title"}).unique({"text"}));
    add({"A: one", "B: two"});
    auto const notes = fetched(*context, "Note");
    context->performBlockAndWait([&] {
        notes[0]->setValueForKey(Value("B"), "title");
        notes[1]->setValueForKey(Value("A"), "title");
    });
    ASSERT_TRUE(saves(*context));
    open(notesModel().unique({"title"}).unique({"text"}));
    EXPECT_EQ(found("{title, text} FINDS 'one b' OR title FINDS 'a' AND text == 'two'"), "BA");
    EXPECT_EQ(findings(), "");
}

TEST_F(SearchedFile, OnlyStoredTextsCanBeSearched) {
    std::pair<Type, AttributeOptions> const table[] = {{Type::Integer32, {.fullText = true}},
                                                       {Type::String, {.transient = true, .fullText = true}},
                                                       {Type::URI, {.fullText = true}},
                                                       {Type::String, {.fullText = true, .derived = true}}};
    for (auto const& [type, options] : table)
        EXPECT_DEATH(ModelBuilder().entity("Note").attribute("text", type, options).build(), "Note.text cannot be searched");
}

struct Note : ManagedObject<Note> {
    static inline Attribute<std::string> const title{"title"};
    static inline Attribute<std::string> const text{"text"};
};

TEST_F(SearchedFile, TypedQueriesSayWhatFormatsSay) {
    auto const same = [](Ref<NSPredicate> const& typed, char const* format) {
        return typed->isEqual(*NSPredicate::predicateWithFormat(format));
    };
    EXPECT_TRUE(same(Note::text.finds("jane pri"), "text FINDS 'jane pri'"));
    EXPECT_TRUE(same(finds("jane", Note::title, Note::text), "{title, text} FINDS 'jane'"));
    open();
    add({"A: one", "Ä one: two"});
    context->performBlockAndWait([&] {
        auto const query = FetchQuery<NSManagedObject>(context, "Note").search("one a").sortedBy(searchRank());
        EXPECT_TRUE(same(query.request()->predicate(), "{title, text} FINDS 'one a'"));
        EXPECT_EQ(query.objects().size(), 2U);
        auto const excerpt = searchExcerpt(*query.objects().back(), SearchQuery("one"));
        EXPECT_EQ(excerpt.key, excerpt.excerpt.text == "one" ? "text" : "title");
        EXPECT_EQ(excerpt.excerpt.hits.size(), 1U);
    });
}

} // namespace
} // namespace Tessarin::tests
