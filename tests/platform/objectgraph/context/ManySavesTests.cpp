// Many saves handed up to a context that does not save: what is read above them, and what is written in the end.
#include "Library.h"
#include <random>

using namespace Tessarin;
using namespace Tessarin::tests;

namespace {

/// Every book by title: "title year author [tags] [chapters in order]".
std::string everything(Ref<NSManagedObjectContext> const& context) {
    std::vector<std::string> lines;
    context->performBlockAndWait([&] {
        for (auto const& book : fetched(*context, "Book")) {
            auto const author = toOne(book, "author");
            lines.push_back(book->valueForKey("title").description() + " " + book->valueForKey("year").description() + " " +
                            (author ? author->valueForKey("name").description() : "nobody") + " [" +
                            members(*book, "tags", "name") + "] [" + members(*book, "chapters") + "]");
        }
    });
    std::ranges::sort(lines);
    std::string text;
    for (auto const& line : lines) text += line + "\n";
    return text;
}

} // namespace

TEST(ManySaves, ReadAndAreWrittenAsIfTheParentHadSavedAfterEach) {
    for (auto const seed : {1u, 2u}) {
        SCOPED_TRACE(seed);
        std::string written[2];
        for (bool const savesEach : {false, true}) {
            std::mt19937 random{seed};
            Library library("SQLite");
            for (auto const* name : {"a", "b", "c"})
                inserted(*library.root, "Author", {{"name", name}}), inserted(*library.root, "Tag", {{"name", name}});
            ASSERT_TRUE(saves(*library.root));
            auto const main = Library::childOf(library.root);
            for (int step = 0; step < 90; ++step) {
                auto const worker = Library::childOf(main);
                auto const at = [&](char const* entity, char const* key) -> Ref<NSManagedObject> {
                    auto const all = fetched(*worker, entity, nullptr, {NSSortDescriptor::sortDescriptorWithKey(key)});
                    return all.empty() ? nullptr : all[random() % all.size()];
                };
                auto const book = at("Book", "title");
                auto const tag = at("Tag", "name");
                auto const author = at("Author", "name");
                auto const what = book ? random() % 8 : 0;
                if (what < 2) inserted(*worker, "Book", {{"title", std::to_string(step)}, {"author", Value(author)}});
                if (what == 2) worker->deleteObject(*book);
                if (what == 3) book->setValueForKey(step, "year");
                if (what == 4) book->setValueForKey(Value(author), "author");
                if (what == 5) book->mutableSetValueForKey("tags").addObject(tag);
                if (what == 6) book->mutableSetValueForKey("tags").removeObject(tag);
                if (what == 7) inserted(*worker, "Chapter", {{"title", std::to_string(step)}, {"book", Value(book)}});
                ASSERT_TRUE(saves(*worker));
                if (savesEach) { ASSERT_TRUE(saves(*main)); }
                ASSERT_EQ(everything(Library::childOf(main)), everything(worker)) << step;
            }
            auto const read = everything(Library::childOf(main));
            ASSERT_TRUE(saves(*main));
            ASSERT_TRUE(saves(*library.root));
            written[savesEach] = everything(Library("SQLite", &library).root);
            EXPECT_EQ(written[savesEach], read);
        }
        EXPECT_EQ(written[0], written[1]);
    }
}
