// What a fetch of 50,000 keys costs the main thread when it is made beside it, and when it is made there. Processor time of that
// thread alone.
#include "benchmarks/live/Groups.h"

#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/queues/DispatchMain.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

namespace Tessarin::benchmarks {
namespace {

constexpr int notes = 50'000;
constexpr int runs = 9;

double threadMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

void require(Ref<NSError> const& error) {
    if (error) fatal(error->description());
}

class Notes {
public:
    Notes() {
        folder_ = (std::filesystem::temp_directory_path() / "bench-live-XXXXXX").string();
        if (!mkdtemp(folder_.data())) fatal("no temporary folder");
        auto const model = ModelBuilder()
                               .entity("Note")
                               .attribute("title", NSAttributeType::String)
                               .attribute("pinned", NSAttributeType::Boolean)
                               .build();
        auto const coordinator = make<NSPersistentStoreCoordinator>(model);
        Ref<NSError> error;
        coordinator->addPersistentStoreWithType(NSSQLiteStoreType, {}, NSURL::fileURLWithPath(folder_ + "/notes.db"), {}, error);
        require(error);
        root->setPersistentStoreCoordinator(coordinator);
        root->performBlockAndWait([&] {
            for (int i = 0; i < notes; ++i)
                root->insertNewObject("Note")->setValueForKey(std::to_string(i * 7919LL % 1'000'003) + " is a title", "title");
            root->save(error);
        });
        require(error);
        main->setParentContext(root);
    }
    ~Notes() { std::filesystem::remove_all(folder_); }

    Ref<NSManagedObjectContext> const root = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    Ref<NSManagedObjectContext> const main = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::MainQueue);

private:
    std::string folder_;
};

std::size_t found = 0;

double beside(NSManagedObjectContext& context, NSFetchRequest const& request) {
    auto const start = threadMilliseconds();
    context.fetchAsync(request, [&](FetchedObjects list, Ref<NSError> const& error) {
        require(error);
        found = list.size();
        stopMainLoop();
    });
    runMainLoop();
    return threadMilliseconds() - start;
}

double inPlace(NSManagedObjectContext& context, NSFetchRequest const& request) {
    auto const start = threadMilliseconds();
    Ref<NSError> error;
    found = context.fetchObjects(request, error).size();
    require(error);
    return threadMilliseconds() - start;
}

void fetchRow(Report& report, Notes& library, char const* row, std::size_t count) {
    auto const request = make<NSFetchRequest>("Note");
    request->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("title")});
    request->setFetchBatchSize(50);
    auto const [ours, theirs] = medians(
        runs, [&] { return beside(*library.main, *request); }, [&] { return inPlace(*library.main, *request); });
    if (found != count) fatal("a fetch has not found every note");
    report.add({.group = "fetch", .row = row, .unit = "ms", .ours = ours, .peer = "in place", .theirs = theirs, .target = 0.1});
}

} // namespace

void benchAsynchronousFetch(Report& report) {
    char const* const plain = "asynchronous fetch (main thread's share)";
    char const* const edited = "asynchronous fetch (main thread's share), 20 unsaved notes";
    if (!report.wants("fetch", plain) && !report.wants("fetch", edited)) return;
    Notes library;
    if (report.wants("fetch", plain)) fetchRow(report, library, plain, notes);
    for (int i = 0; i < 20; ++i)
        library.main->insertNewObject("Note")->setValueForKey(std::to_string(i * 31'337) + " is new", "title");
    if (report.wants("fetch", edited)) fetchRow(report, library, edited, notes + 20);
    library.main->reset();
}

} // namespace Tessarin::benchmarks
