#include "Tessarin/platform/queues/QueueChecks.h"
#include "tests/platform/objectgraph/context/Library.h"

namespace Tessarin::tests {
namespace {

TEST(QueueCheckDeathTest, UseOffTheQueueNamesObjectContextAndQueues) {
    Library library("InMemory");
    auto const& root = library.root;
    root->setName("import");
    auto const book = inserted(*root, "Book", {{"title", "Emma"}});
    auto const elsewhere = dispatch_queue_create("images", DISPATCH_QUEUE_SERIAL);
    auto const off = [&](std::function<void()> const& use) {
        setChecksQueues(true);
        dispatch_sync(elsewhere, use);
        _exit(0);
    };
    auto const said = [](std::string const& what) {
        return "^" + what +
               " of the context \"import\", which belongs to a queue of its own, \"NSManagedObjectContext\", was used on "
               "the queue \"images\"\\. Use it in performBlock or performBlockAndWait of that context\\.\n$";
    };
    struct {
        std::function<void()> use;
        char const* what;
    } const cases[] = {
        {[&] { book->valueForKey("title"); }, "the object Book t[0-9]+"},
        {[&] { book->setValueForKey("Emma", "title"); }, "the object Book t[0-9]+"},
        {[&] { book->valueForKey("author"); }, "the object Book t[0-9]+"},
        {[&] { book->valueForKey("chapters"); }, "the object Book t[0-9]+"},
        {[&] { book->mutableSetValueForKey("tags").addObject(book); }, "the object Book t[0-9]+"},
        {[&] { root->insertNewObject("Tag"); }, "insertNewObject\\(\\)"},
        {[&] { root->deleteObject(*book); }, "deleteObject\\(\\)"},
        {[&] { static_cast<void>(root->hasChanges()); }, "hasChanges\\(\\)"},
        {[&] { saves(*root), static_cast<void>(root->rollback()); }, "rollback\\(\\)"}, // after a use on it
    };
    for (auto const& each : cases) EXPECT_DEATH(off(each.use), said(each.what));
    // On the queue, in whatever nesting, and what any thread may do.
    auto const fine = [&] {
        setChecksQueues(true);
        root->performBlockAndWait([&] { dispatch_sync(elsewhere, [&] { book->setValueForKey("Persuasion", "title"); }); });
        dispatch_sync(elsewhere, [&] {
            root->performBlockAndWait([&] { root->performBlockAndWait([&] { book->valueForKey("title"); }); });
            static_cast<void>(root->name() + book->entity().name());
            static_cast<void>(book->managedObjectContext());
        });
        _exit(saves(*root) ? 0 : 1);
    };
    EXPECT_EXIT(fine(), testing::ExitedWithCode(0), "");
}

TEST(Explaining, SaysTheSQLItsIndexesAndWhatIsLeftToMemory) {
    Library library("SQLite");
    auto const& root = library.root;
    inserted(*root, "Author", {{"name", "Jane"}, {"rating", 3}});
    ASSERT_TRUE(saves(*root));
    auto const explained = [&](char const* entity, char const* format, std::size_t limit = 0) {
        FetchExplanation explanation;
        root->performBlockAndWait([&] {
            auto const request = make<NSFetchRequest>(entity);
            request->setPredicate(NSPredicate::predicateWithFormat(format));
            request->setFetchLimit(limit);
            Ref<NSError> error;
            explanation = root->explain(*request, error);
            EXPECT_FALSE(error);
        });
        return explanation;
    };
    auto const byName = explained("Author", "name == 'Jane'", 5);
    EXPECT_NE(byName.sql.find("SELECT "), std::string::npos);
    EXPECT_EQ(byName.sql.find("Jane"), std::string::npos);
    EXPECT_EQ(byName.boundCount, 2U); // name and limit
    EXPECT_EQ(byName.indexes.size(), 1U) << byName.description();
    EXPECT_TRUE(byName.inMemory.empty()) << byName.description();
    ASSERT_FALSE(byName.plan.empty());
    EXPECT_NE(byName.plan[0].find("USING"), std::string::npos);

    auto const mixed = explained("Book", "year > 1800 AND draft == 'x'", 5);
    EXPECT_EQ(mixed.inMemory,
              (std::vector<std::string>{"Filtered by a condition that SQL cannot say with the same answer: draft == \"x\".",
                                        "Cut by limit and offset, at the end: every record that the SQL gives is read."}));
    EXPECT_EQ(mixed.boundCount, 1U);

    inserted(*root, "Author", {{"name", "Ann"}});
    auto const unsaved = explained("Author", "name == 'Jane'", 5);
    ASSERT_EQ(unsaved.inMemory.size(), 2U) << unsaved.description();
    EXPECT_EQ(unsaved.inMemory[0].substr(0, 40), "Laid over the answer: 1 unsaved records ");
    Library inMemory("InMemory");
    Ref<NSError> error;
    inMemory.root->performBlockAndWait([&] {
        EXPECT_EQ(inMemory.root->fetch("Author").explain().description(),
                  "In memory:\n  This store has no SQL: every record of the entity is looked at.\n");
        EXPECT_TRUE(inMemory.root->explain(*make<NSFetchRequest>("Nobody"), error).inMemory.empty());
        EXPECT_TRUE(error);
    });
}

TEST(Graphviz, ShowsEntitiesEscapedWithBothEndsOnceAndCounts) {
    auto const model = ModelBuilder()
                           .entity("A<b>\"", {.isAbstract = true})
                           .attribute("x&y", NSAttributeType::Integer64, {.optional = false})
                           .toMany("many", "C", {.inverse = "one"})
                           .entity("C", {.parent = "A<b>\""})
                           .attribute("own", NSAttributeType::Date)
                           .toOne("one", "A<b>\"", {.inverse = "many"})
                           .build();
    auto const table = R"(<<table border="0" cellborder="1" cellspacing="0"><tr><td>)";
    EXPECT_EQ(
        model->graphvizText(),
        "digraph model {\n  node [shape=plain];\n  \"A<b>\\\"\" [label=" + std::string(table) +
            "<i>A&lt;b&gt;&quot;</i></td></tr><tr><td align=\"left\">x&amp;y: Integer 64</td></tr></table>>];\n  \"C\" [label=" +
            table +
            "<b>C</b></td></tr><tr><td align=\"left\">own: Date?</td></tr></table>>];\n"
            "  \"A<b>\\\"\" -> \"C\" [label=\"many / one\", arrowhead=crow, dir=both, arrowtail=normal];\n"
            "  \"C\" -> \"A<b>\\\"\" [arrowhead=empty, style=dashed];\n}\n");

    Library library("SQLite");
    for (auto const* entity : {"Book", "Novel", "Novel"}) inserted(*library.root, entity, {});
    ASSERT_TRUE(saves(*library.root));
    Ref<NSError> error;
    auto const text = library.coordinator->graphvizText(error);
    EXPECT_NE(text.find("<b>Book</b><br/>1 record<"), std::string::npos) << text;
    EXPECT_NE(text.find("<b>Novel</b><br/>2 records<"), std::string::npos);
    EXPECT_NE(text.find("<b>Tag</b><br/>0 records<"), std::string::npos);
}

} // namespace
} // namespace Tessarin::tests
