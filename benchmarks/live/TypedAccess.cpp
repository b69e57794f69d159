// Typed queries beside parsed formats, and setters by handle beside keyed access. Processor time.
#include "benchmarks/live/Groups.h"

#include "Tessarin/platform/objectgraph/context/FetchQuery.h"
#include "Tessarin/platform/objectgraph/context/ManagedObject.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "Tessarin/platform/runtime/Class.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin::benchmarks {
namespace {

constexpr int runs = 15;
constexpr int times = 2'000;

class Volume : public ManagedObject<Volume> {
public:
    static inline Attribute<std::string> const title{"title"};
    static inline Attribute<std::int64_t> const year{"year"};
};

/// A hundred volumes in memory.
Ref<NSManagedObjectContext> volumes() {
    auto const& known = registerClass<Volume, NSManagedObject>();
    auto const coordinator = make<NSPersistentStoreCoordinator>(ModelBuilder()
                                                                    .entity("Volume", {.className = known.name()})
                                                                    .attribute("title", NSAttributeType::String)
                                                                    .attribute("year", NSAttributeType::Integer64)
                                                                    .build());
    Ref<NSError> error;
    coordinator->addPersistentStoreWithType(NSInMemoryStoreType, {}, NSURL::fileURLWithPath("/nowhere"), {}, error);
    if (error) fatal(error->description());
    auto context = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    context->setPersistentStoreCoordinator(coordinator);
    context->performBlockAndWait([&] {
        for (int i = 0; i < 100; ++i) {
            auto const volume = context->insertNewObject("Volume");
            volume->setValueForKey(Value("volume " + std::to_string(i)), "title");
            volume->setValueForKey(Value(1900 + i), "year");
        }
        if (!context->save(error)) fatal(error->description());
    });
    return context;
}

double microseconds(Ref<NSManagedObjectContext> const& context, FunctionRef<void(int)> work) {
    double seconds = 0;
    context->performBlockAndWait([&] {
        seconds = costOf([&] {
                      for (int i = 0; i < times; ++i) work(i);
                  }).processor;
    });
    return seconds * 1e6 / times;
}

void requireOne(std::size_t found) {
    if (found != 1) fatal("there is one such volume");
}

} // namespace

void benchTypedAccess(Report& report) {
    auto const context = volumes();
    if (report.wants("typed", "query, built and run")) {
        auto const [ours, theirs] = medians(
            runs,
            [&] {
                return microseconds(context, [&](int i) {
                    requireOne(
                        context->fetch<Volume>().where(Volume::year == 1900 + i % 100 && Volume::title != "").objects().size());
                });
            },
            [&] {
                return microseconds(context, [&](int i) {
                    auto const request = make<NSFetchRequest>("Volume");
                    request->setPredicate(NSPredicate::predicateWithFormat("year == %d AND title != ''", 1900 + i % 100));
                    Ref<NSError> error;
                    requireOne(context->executeFetchRequest(*request, error).size());
                });
            });
        report.add(
            {.group = "typed", .row = "query, built and run", .unit = "us", .ours = ours, .peer = "format", .theirs = theirs});
    }
    if (report.wants("typed", "a text and a number set")) {
        Ref<Volume> volume;
        context->performBlockAndWait([&] { volume = context->fetch<Volume>().first(); });
        auto const [ours, theirs] = medians(
            runs,
            [&] {
                return microseconds(context, [&](int i) {
                    volume->set(Volume::title, "a title that is longer than a word");
                    volume->set(Volume::year, std::int64_t{i});
                });
            },
            [&] {
                return microseconds(context, [&](int i) {
                    volume->setValueForKey("a title that is longer than a word", "title");
                    volume->setValueForKey(i, "year");
                });
            });
        report.add(
            {.group = "typed", .row = "a text and a number set", .unit = "us", .ours = ours, .peer = "keyed", .theirs = theirs});
    }
}

} // namespace Tessarin::benchmarks
