#pragma once
// Books in memory, in a context of the main queue, for the models of toolkits: changed on the main thread, outside any block.
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include <gtest/gtest.h>
#include <random>

namespace Tessarin::tests {

class Shelves {
public:
    Shelves() {
        auto const coordinator =
            make<NSPersistentStoreCoordinator>(ModelBuilder()
                                                   .entity("Shelf")
                                                   .toMany("books", "Book", {.inverse = "shelf", .ordered = true})
                                                   .entity("Book")
                                                   .attribute("title", NSAttributeType::String)
                                                   .attribute("year", NSAttributeType::Integer32)
                                                   .toOne("shelf", "Shelf", {.inverse = "books"})
                                                   .build());
        Ref<NSError> error;
        coordinator->addPersistentStoreWithType(NSInMemoryStoreType, {}, NSURL::fileURLWithPath("/nowhere"), {}, error);
        context->setPersistentStoreCoordinator(coordinator);
        EXPECT_FALSE(error);
    }

    Ref<LiveList> list(LiveOptions options = {}) const {
        auto const request = make<NSFetchRequest>("Book");
        request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("title")});
        return make<LiveList>(context, request, std::move(options));
    }
    Ref<NSManagedObject> add(std::string const& title, int year = 0) const {
        auto const book = context->insertNewObject("Book");
        book->setValueForKey(Value(title), "title");
        book->setValueForKey(Value(year), "year");
        return book;
    }
    void turnEnds() const { context->processPendingChanges(); }

    /// Some changes of one turn.
    void changeAtRandom(std::mt19937& random) {
        auto const upTo = [&](std::size_t bound) { return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random); };
        for (auto changes = 1 + upTo(6); changes > 0; --changes) {
            Ref<NSError> error;
            auto const all = context->executeFetchRequest(*make<NSFetchRequest>("Book"), error);
            auto const what = upTo(4);
            if (all.empty() || (what == 0 && all.size() < 40))
                add("t" + std::to_string(upTo(30)), static_cast<int>(upTo(4)));
            else if (what == 1)
                context->deleteObject(*all[upTo(all.size())]);
            else
                all[upTo(all.size())]->setValueForKey(what == 2 ? Value("t" + std::to_string(upTo(30))) : Value(int(upTo(4))),
                                                      what == 2 ? "title" : "year");
        }
        turnEnds();
    }

    Ref<NSManagedObjectContext> const context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::MainQueue);
};

} // namespace Tessarin::tests
