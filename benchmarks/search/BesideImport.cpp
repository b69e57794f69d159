// What a search costs the main thread while an import waits to be written: asked beside it, and then shown. Processor time of
// that thread alone. Each key that is typed is another search.
#include "benchmarks/search/BesideImport.h"

#include "benchmarks/search/Raw.h"

#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/objectgraph/query/SearchRank.h"
#include "Tessarin/platform/queues/DispatchMain.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <ctime>

namespace Tessarin::benchmarks {
namespace {

constexpr int stored = 50'000, waiting = 50'000;
constexpr std::size_t shown = 200, best = 50;
constexpr char const* typed[] = {"w", "wa", "wan", "want", "wante", "wanted"};

double threadMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

void require(Ref<NSError> const& error) {
    if (error) fatal(error->description());
}

Ref<NSManagedObjectContext> contextOf(NSManagedObjectContextConcurrencyType type) { return make<NSManagedObjectContext>(type); }

void insert(NSManagedObjectContext& context, std::vector<Note> const& notes, double later) {
    context.performBlockAndWait([&] {
        for (auto const& note : notes) {
            auto const made = context.insertNewObject("Note");
            made->setValueForKey(Value(note.title), "title");
            made->setValueForKey(Value(note.text), "text");
            made->setValueForKey(Value(note.created + later), "created");
        }
        Ref<NSError> error;
        context.save(error);
        require(error);
    });
}

/// A file with notes, and as many that a worker has handed to the main context.
struct Levels {
    explicit Levels(std::string const& place) {
        auto const model = ModelBuilder()
                               .entity("Note")
                               .attribute("title", NSAttributeType::String, {.fullText = true})
                               .attribute("text", NSAttributeType::String, {.fullText = true})
                               .attribute("created", NSAttributeType::Double)
                               .build();
        auto const coordinator = make<NSPersistentStoreCoordinator>(model);
        Ref<NSError> error;
        coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(place), {}, error);
        require(error);
        root->setPersistentStoreCoordinator(coordinator);
        main->setParentContext(root);
        worker->setParentContext(main);
        insert(*root, notes(stored), 0);
        insert(*worker, notes(waiting, 3), 0.5); // between the others
    }
    Ref<NSManagedObjectContext> const root = contextOf(NSManagedObjectContextConcurrencyType::PrivateQueue);
    Ref<NSManagedObjectContext> const main = contextOf(NSManagedObjectContextConcurrencyType::MainQueue);
    Ref<NSManagedObjectContext> const worker = contextOf(NSManagedObjectContextConcurrencyType::PrivateQueue);
};

Ref<NSFetchRequest> latest(Ref<NSPredicate> predicate) {
    auto request = make<NSFetchRequest>("Note");
    request->setPredicate(std::move(predicate));
    request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("created", {.ascending = false})});
    return request;
}

List found;

double search(Levels& levels, char const* words, bool isRanked = false) {
    auto const request = latest(NSPredicate::predicateWithFormat("{title, text} FINDS %@", words));
    request->setFetchLimit(isRanked ? best : shown);
    if (isRanked) request->setSortDescriptors({searchRank()});
    auto const start = threadMilliseconds();
    levels.main->fetchAsync(*request, [&](FetchedObjects list, Ref<NSError> const& error) {
        require(error);
        found.clear();
        for (auto const& note : list) found.push_back(Value(note));
        stopMainLoop();
    });
    runMainLoop();
    if (found.size() != request->fetchLimit()) fatal("a search beside an import has not found the first notes");
    return threadMilliseconds() - start;
}

double show(Levels& levels) {
    auto const request = latest(NSPredicate::predicateWithFormat("SELF IN %@", Value(found)));
    auto const start = threadMilliseconds();
    Ref<NSError> error;
    auto const notes = levels.main->executeFetchRequest(*request, error);
    require(error);
    auto const taken = threadMilliseconds() - start;
    if (notes.size() != shown) fatal("a search beside an import has not found the first notes");
    return taken;
}

double searchByHand(Raw& raw, char const* word, bool isRanked = false) {
    auto const expression = "\"" + std::string(word) + "\" *";
    auto const start = threadMilliseconds();
    auto const notes = isRanked ? raw.find(expression, true) : raw.latest(expression, shown);
    if (notes.size() != (isRanked ? best : shown)) fatal("FTS5 has not found the first notes");
    return threadMilliseconds() - start;
}

double median(std::vector<double> times) {
    std::ranges::sort(times);
    return times[times.size() / 2];
}

} // namespace

void benchBesideImport(Report& report, std::string const& ours, std::string const& theirs) {
    char const* const searched = "the first 200 of a search beside an import that waits, main thread";
    char const* const listed = "those 200 by identity beside it, main thread";
    char const* const ranked = "the first 50 by rank beside it, main thread";
    if (!report.wants("search", searched) && !report.wants("search", listed) && !report.wants("search", ranked)) return;
    Levels levels(ours);
    Raw raw(theirs);
    raw.make();
    raw.insert(notes(stored + waiting));
    std::vector<double> searches, shows, byHand, ranks, ranksByHand;
    for (auto const* word : typed) {
        searches.push_back(search(levels, word));
        shows.push_back(show(levels));
        byHand.push_back(searchByHand(raw, word));
        ranks.push_back(search(levels, word, true));
        ranksByHand.push_back(searchByHand(raw, word, true));
    }
    struct {
        char const* row;
        std::vector<double> const *times, *peer;
    } const rows[] = {{searched, &searches, &byHand}, {listed, &shows, &byHand}, {ranked, &ranks, &ranksByHand}};
    for (auto const& [row, times, peer] : rows)
        report.add({.group = "search",
                    .row = row,
                    .unit = "ms",
                    .ours = median(*times),
                    .peer = "FTS5 by hand, in place",
                    .theirs = median(*peer),
                    .target = 4,
                    .bound = Bound::Ours});
}

} // namespace Tessarin::benchmarks
