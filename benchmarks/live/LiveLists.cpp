// What a live list costs the main thread beyond the change itself: one change among more and more results, an import beside an open
// list, many updates at once. Processor time of that thread alone.
#include "benchmarks/live/Groups.h"

#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/live/LiveList.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/queues/Dispatch.h"
#include "Tessarin/platform/queues/DispatchMain.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>
#include <string>

namespace Tessarin::benchmarks {
namespace {

double threadMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

void require(Ref<NSError> const& error) {
    if (error) fatal(error->description());
}

std::string titleOf(std::uint64_t number) { return "title " + std::to_string(number * 2'654'435'761u % 1'000'000'007); }

/// Books of a hundred authors in a file, under a root and a main context.
class Shop {
public:
    explicit Shop(int count) : count_(count) {
        folder_ = (std::filesystem::temp_directory_path() / "bench-live-XXXXXX").string();
        if (!mkdtemp(folder_.data())) fatal("no temporary folder");
        auto const model = ModelBuilder()
                               .entity("Author")
                               .attribute("name", NSAttributeType::String)
                               .toMany("books", "Book", {.inverse = "author"})
                               .entity("Book")
                               .attribute("title", NSAttributeType::String)
                               .attribute("code", NSAttributeType::Integer64, {.indexed = true})
                               .attribute("year", NSAttributeType::Integer32)
                               .toOne("author", "Author", {.inverse = "books"})
                               .build();
        auto const coordinator = make<NSPersistentStoreCoordinator>(model);
        Ref<NSError> error;
        coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(folder_ + "/shop.db"), {}, error);
        require(error);
        root->setPersistentStoreCoordinator(coordinator);
        root->performBlockAndWait([&] { fill(*root, 0, count); });
        root->performBlockAndWait([&] { root->reset(); });
        main->setParentContext(root);
    }
    ~Shop() { std::filesystem::remove_all(folder_); }

    static void fill(NSManagedObjectContext& context, int first, int last) {
        std::vector<Ref<NSManagedObject>> authors;
        for (int i = 0; i < 100; ++i) {
            authors.push_back(context.insertNewObject("Author"));
            authors.back()->setValueForKey(Value("author " + std::to_string(i)), "name");
        }
        for (int i = first; i < last; ++i) {
            auto const book = context.insertNewObject("Book");
            book->setValueForKey(Value(titleOf(static_cast<std::uint64_t>(i))), "title");
            book->setValueForKey(Value(i), "code");
            book->setValueForKey(Value(1800 + i % 200), "year");
            book->setValueForKey(Value(authors[static_cast<std::size_t>(i) % authors.size()]), "author");
        }
        Ref<NSError> error;
        context.save(error);
        require(error);
    }

    Ref<LiveList> list() const {
        auto const request = make<NSFetchRequest>("Book");
        request->setPredicate(NSPredicate::predicateWithFormat("author.name BEGINSWITH 'author'"));
        request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("title")});
        auto list = make<LiveList>(main, request);
        require(list->error());
        return list;
    }
    Ref<NSManagedObject> bookWithCode(int code) const {
        auto const request = make<NSFetchRequest>("Book");
        request->setPredicate(NSPredicate::predicateWithFormat("code == %d", code));
        Ref<NSError> error;
        auto const found = main->executeFetchRequest(*request, error);
        require(error);
        if (found.size() != 1) fatal("there is no such book");
        return found.front();
    }
    int count() const noexcept { return count_; }

    Ref<NSManagedObjectContext> const root = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    Ref<NSManagedObjectContext> const main = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::MainQueue);

private:
    int count_;
    std::string folder_;
};

constexpr int changes = 200;

/// Microseconds a change and the end of its turn, with whatever follows them.
double costOfChange(Shop const& shop, std::mt19937& random) {
    auto const any = [&] { return std::uniform_int_distribution<int>(0, shop.count() - 1)(random); };
    std::vector<double> costs;
    for (int i = 0; i < changes; ++i) {
        auto const book = shop.bookWithCode(any());
        auto const start = threadMicroseconds();
        book->setValueForKey(Value(titleOf(random())), "title");
        shop.main->processPendingChanges();
        costs.push_back(threadMicroseconds() - start);
        shop.main->rollback();
        shop.main->processPendingChanges();
    }
    std::ranges::sort(costs);
    return costs[costs.size() / 2];
}

double costOfLookUp(Shop const& shop, std::mt19937& random) {
    std::vector<double> costs;
    for (int i = 0; i < changes; ++i) {
        auto const code = std::uniform_int_distribution<int>(0, shop.count() - 1)(random);
        auto const start = threadMicroseconds();
        shop.bookWithCode(code);
        costs.push_back(threadMicroseconds() - start);
    }
    std::ranges::sort(costs);
    return costs[costs.size() / 2];
}

void benchOneChange(Report& report) {
    double smallest = 0;
    for (int const count : {1'000, 10'000, 100'000, 1'000'000}) {
        auto const name = "one change among " + std::to_string(count);
        if (!report.wants("live list", name)) continue;
        Shop const shop(count);
        std::mt19937 random(1);
        costOfChange(shop, random); // once, to warm what both find warm
        auto const plain = costOfChange(shop, random); // nobody looks
        auto const lookUp = costOfLookUp(shop, random);
        std::size_t steps = 0;
        auto const list = shop.list();
        if (static_cast<int>(list->size()) != count) fatal("the list is not whole");
        auto const connection = list->observe([&](LiveChanges const& told) { steps += told.steps().size(); });
        costOfChange(shop, random);
        auto const with = costOfChange(shop, random);
        if (steps < changes) fatal("the list was not told");
        auto const ours = with - plain;
        report.add(
            {.group = "live list", .row = name, .unit = "us", .ours = ours, .peer = "look-up", .theirs = lookUp, .target = 4});
        if (count == 1'000) smallest = ours;
        if (count == 1'000'000 && smallest != 0)
            report.add({.group = "live list",
                        .row = "growth to 1,000,000",
                        .unit = "us",
                        .ours = ours,
                        .peer = "1,000",
                        .theirs = smallest,
                        .target = 3});
    }
}

/// The longest that one item of the main queue takes while a child hands 25,000 books up.
void benchImport(Report& report) {
    if (!report.wants("live list", "longest turn beside 25,000 inserted")) return;
    auto const longest = median(5, [] {
        Shop const shop(10'000);
        auto const list = shop.list();
        std::size_t tellings = 0;
        auto const connection = list->observe([&](LiveChanges const&) { ++tellings; });
        auto const worker = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
        worker->setParentContext(shop.main);
        worker->performBlock([&] { Shop::fill(*worker, 10'000, 35'000); });
        double most = 0;
        while (list->size() < 35'000) { // the queue's items, one by one between two of these
            auto const start = threadMicroseconds();
            drainMainQueue();
            most = std::max(most, threadMicroseconds() - start);
        }
        if (tellings < 2) fatal("the import was told at once");
        return most / 1e3;
    });
    report.add({.group = "live list", .row = "longest turn beside 25,000 inserted", .unit = "ms", .ours = longest, .target = 4});
}

void benchScattered(Report& report) {
    if (!report.wants("live list", "10,000 scattered updates")) return;
    Shop const shop(100'000);
    auto const measured = [&](bool isOpen) {
        auto const list = isOpen ? shop.list() : nullptr;
        std::vector<Ref<NSManagedObject>> books;
        for (int i = 0; i < 10'000; ++i) books.push_back(shop.bookWithCode(i * 10));
        auto const start = threadMicroseconds();
        for (auto const& book : books) book->setValueForKey(Value(1700), "year");
        shop.main->processPendingChanges();
        if (list) list->finish();
        auto const cost = threadMicroseconds() - start;
        shop.main->rollback();
        shop.main->processPendingChanges();
        return cost / 1e3;
    };
    auto const [with, without] = medians(
        5, [&] { return measured(true); }, [&] { return measured(false); });
    report.add({.group = "live list",
                .row = "10,000 scattered updates",
                .unit = "ms",
                .ours = with,
                .peer = "nobody looks",
                .theirs = without});
}

} // namespace

void benchLiveLists(Report& report) {
    benchOneChange(report);
    benchImport(report);
    benchScattered(report);
}

} // namespace Tessarin::benchmarks
