// What it costs to take 10,000 deletions back, beside making them; and what an undo manager adds to these. Processor time.
#include "benchmarks/live/Groups.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/objectgraph/undo/UndoManager.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Tessarin::benchmarks {
namespace {

constexpr int books = 10'000, authors = 100;

/// Books with authors, saved in memory, so that no disk is measured.
class Shelf {
public:
    explicit Shelf(bool undoes) {
        auto const model = ModelBuilder()
                               .entity("Author")
                               .attribute("name", NSAttributeType::String)
                               .toMany("books", "Book", {.inverse = "author"})
                               .entity("Book")
                               .attribute("title", NSAttributeType::String)
                               .toOne("author", "Author", {.inverse = "books"})
                               .build();
        auto const coordinator = make<NSPersistentStoreCoordinator>(model);
        Ref<NSError> error;
        coordinator->addPersistentStoreWithType(NSInMemoryStoreType, {}, NSURL::fileURLWithPath("/bench"), {}, error);
        context_->setPersistentStoreCoordinator(coordinator);
        context_->performBlockAndWait([&] {
            std::vector<Ref<NSManagedObject>> writers;
            for (int i = 0; i < authors; ++i) writers.push_back(context_->insertNewObject("Author"));
            for (int i = 0; i < books; ++i) {
                auto const book = context_->insertNewObject("Book");
                book->setValueForKey("Title " + std::to_string(i), "title");
                book->setValueForKey(Value(writers[static_cast<std::size_t>(i % authors)]), "author");
            }
            if (!context_->save(error)) fatal(error->description());
            all_ = context_->fetch<>("Book").objects();
            if (undoes) undo_ = context_->undoManager();
        });
    }
    double deleteAll() {
        return costOf([&] {
                   context_->performBlockAndWait([&] {
                       for (auto const& book : all_) context_->deleteObject(*book);
                   });
               })
            .processor;
    }
    double takeBack() {
        auto const cost = costOf([&] { context_->performBlockAndWait([&] { undo_->undo(); }); }).processor;
        context_->performBlockAndWait([&] {
            if (context_->fetch<>("Book").count() != books) fatal("not all books are back");
        });
        return cost;
    }

private:
    Ref<NSManagedObjectContext> const context_ =
        make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    std::vector<Ref<NSManagedObject>> all_;
    Ref<UndoManager> undo_;
};

} // namespace

void benchUndoing(Report& report) {
    if (!report.wants("undo", "10,000 deletions")) return;
    std::vector<double> plain, deleting, undoing;
    for (int run = 0; run < 5; ++run) {
        plain.push_back(Shelf(false).deleteAll());
        Shelf shelf(true);
        deleting.push_back(shelf.deleteAll());
        undoing.push_back(shelf.takeBack());
    }
    auto const middle = [](std::vector<double>& each) {
        std::ranges::sort(each);
        return each[each.size() / 2] * 1e3;
    };
    auto const without = middle(plain), with = middle(deleting);
    report.add({.group = "undo",
                .row = "of 10,000 deletions",
                .unit = "ms",
                .ours = middle(undoing),
                .peer = "deleting them",
                .theirs = with,
                .target = 1});
    report.add({.group = "undo",
                .row = "10,000 deletions that can be undone",
                .unit = "ms",
                .ours = with,
                .peer = "without",
                .theirs = without});
}

} // namespace Tessarin::benchmarks
