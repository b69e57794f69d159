// Searching texts by their words: ours beside FTS5 used by hand. The same notes, the same words, the same rows found.
#include "benchmarks/search/BesideImport.h"
#include "benchmarks/search/Raw.h"
#include "benchmarks/support/Report.h"

#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/objectgraph/query/SearchRank.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <cstdlib>
#include <filesystem>
#include <memory>

namespace Tessarin::benchmarks {
namespace {

constexpr int noteCount = 50'000;

void require(Ref<NSError> const& error) {
    if (error) fatal(error->description());
}

/// The notes in one of our stores.
class Ours {
public:
    explicit Ours(std::string const& place) {
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
        context_->setPersistentStoreCoordinator(coordinator);
    }

    void insert(std::vector<Note> const& notes) {
        context_->performBlockAndWait([&] {
            for (auto const& note : notes) {
                auto const made = context_->insertNewObject("Note");
                made->setValueForKey(Value(note.title), "title");
                made->setValueForKey(Value(note.text), "text");
                made->setValueForKey(Value(note.created), "created");
            }
            save();
        });
    }
    void change(std::vector<Note> const& notes) {
        context_->performBlockAndWait([&] {
            auto const objects = found("text FINDS %@", "wanted", false);
            for (std::size_t at = 0; at < notes.size(); ++at) {
                objects[at * objects.size() / notes.size()]->setValueForKey(Value(notes[at].text), "text");
                save();
            }
        });
    }
    std::vector<Ref<NSManagedObject>> found(char const* format, std::string const& words, bool isFirstByRank) {
        auto const request = make<NSFetchRequest>("Note");
        request->setPredicate(NSPredicate::predicateWithFormat(format, words));
        if (isFirstByRank) request->setSortDescriptors({searchRank()});
        if (isFirstByRank) request->setFetchLimit(50);
        Ref<NSError> error;
        auto objects = context_->executeFetchRequest(*request, error);
        require(error);
        return objects;
    }
    Ref<NSManagedObjectContext> const& context() const { return context_; }

private:
    void save() {
        Ref<NSError> error;
        context_->save(error);
        require(error);
    }
    Ref<NSManagedObjectContext> const context_ =
        make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
};

class Places {
public:
    Places() {
        folder_ = (std::filesystem::temp_directory_path() / "bench-search-XXXXXX").string();
        if (!mkdtemp(folder_.data())) fatal("no temporary folder");
    }
    ~Places() { std::filesystem::remove_all(folder_); }
    std::string next() { return folder_ + "/" + std::to_string(count_++) + ".db"; }

private:
    std::string folder_;
    int count_ = 0;
};

std::size_t bytesIn(std::vector<Note> const& notes) {
    std::size_t bytes = 0;
    for (auto const& note : notes) bytes += note.title.size() + note.text.size();
    return bytes;
}
std::size_t bytesIn(std::vector<Ref<NSManagedObject>> const& notes) {
    std::size_t bytes = 0;
    for (auto const& note : notes) bytes += note->valueForKey("title").text().size() + note->valueForKey("text").text().size();
    return bytes;
}

void add(Report& report, std::string const& row, MedianCosts const& costs, double target) {
    report.add({.group = "search",
                .row = row,
                .unit = "ms",
                .ours = costs.ours.wall * 1e3,
                .peer = "FTS5 by hand",
                .theirs = costs.theirs.wall * 1e3,
                .target = target});
    report.add({.group = "search",
                .row = row + ", processor",
                .unit = "ms",
                .ours = costs.ours.processor * 1e3,
                .peer = "FTS5 by hand",
                .theirs = costs.theirs.processor * 1e3,
                .target = target});
}

/// Both open their file anew each time, so that neither finds rows in memory; that is not counted.
void benchSearch(Report& report, std::string const& row, std::string const& ours, std::string const& theirs, bool isFirstByRank,
                 std::string const& words, std::string const& expression, double target) {
    if (!report.wants("search", row)) return;
    std::size_t ourBytes = 0, theirBytes = 0, ourCount = 0, theirCount = 0;
    auto const costs = medianCosts(
        9,
        [&] {
            Ours store(ours);
            Cost cost;
            store.context()->performBlockAndWait([&] {
                std::vector<Ref<NSManagedObject>> found;
                cost = costOf(
                    [&] { found = store.found("{title, text} FINDS %@", words, isFirstByRank), ourBytes = bytesIn(found); });
                ourCount = found.size();
            });
            return cost;
        },
        [&] {
            Raw raw(theirs);
            std::vector<Note> found;
            auto const cost = costOf([&] { found = raw.find(expression, isFirstByRank), theirBytes = bytesIn(found); });
            theirCount = found.size();
            return cost;
        });
    if (ourCount != theirCount || (!isFirstByRank && ourBytes != theirBytes)) fatal("they do not find the same: " + row);
    add(report, row + " (" + std::to_string(ourCount) + ")", costs, target);
}

void benchSaves(Report& report, Places& places) {
    auto const few = notes(10'000, 3);
    if (report.wants("search", "a save of 10,000 notes"))
        add(report, "a save of 10,000 notes",
            medianCosts(
                5,
                [&] {
                    Ours store(places.next());
                    return costOf([&] { store.insert(few); });
                },
                [&] {
                    Raw raw(places.next());
                    raw.make();
                    return costOf([&] { raw.insert(few); });
                }),
            0);
    if (!report.wants("search", "200 saves of a changed text")) return;
    auto const changes = notes(200, 5);
    Ours store(places.next());
    Raw raw(places.next());
    raw.make();
    store.insert(few), raw.insert(few);
    add(report, "200 saves of a changed text",
        medianCosts(
            5, [&] { return costOf([&] { store.change(changes); }); },
            [&] {
                return costOf([&] {
                    raw.find("wanted", false);
                    for (std::size_t at = 0; at < changes.size(); ++at)
                        raw.change(static_cast<std::int64_t>(at * few.size() / changes.size() + 1), changes[at].text);
                });
            }),
        0);
}

} // namespace
} // namespace Tessarin::benchmarks

int main(int argc, char** argv) {
    using namespace Tessarin::benchmarks;
    Report report(argc, argv);
    Places places;
    auto const ours = places.next(), theirs = places.next();
    {
        auto const all = notes(noteCount);
        Ours(ours).insert(all);
        Raw raw(theirs);
        raw.make();
        raw.insert(all);
    }
    benchSearch(report, "all hits of a word", ours, theirs, false, "wanted", "\"wanted\" *", 1.3);
    benchSearch(report, "the first 50 by rank", ours, theirs, true, "wanted", "\"wanted\" *", 1.2);
    benchSearch(report, "the first 50 by rank, of two words", ours, theirs, true, "wanted ab", "\"wanted\" AND \"ab\" *", 1.2);
    benchSaves(report, places);
    benchBesideImport(report, places.next(), places.next());
    return report.finish();
}
