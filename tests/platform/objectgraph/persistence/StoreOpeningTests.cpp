#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreOpening.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRefusal.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <functional>
#include <set>

namespace Tessarin::tests {
namespace {

using Stage = StoreProgress::Stage;

/// A file with many books of a simple model, and a model with another column and an index.
class LongOpening : public testing::Test {
protected:
    static ModelBuilder shelf() {
        return std::move(ModelBuilder()
                             .entity("Book")
                             .attribute("code", NSAttributeType::String)
                             .attribute("year", NSAttributeType::Integer32));
    }
    static Ref<NSManagedObjectModel> grown() {
        return ModelBuilder()
            .entity("Book")
            .attribute("code", NSAttributeType::String, {.indexed = true})
            .attribute("year", NSAttributeType::Double)
            .build();
    }
    void SetUp() override {
        OpenStore open(file, shelf().build());
        auto const first = open.store->reserveKeys(count, open.error);
        std::vector<RecordChange> changes;
        for (RecordKey key = first; key < first + count; ++key)
            changes.push_back(open.insertion("Book", key, {{"code", "C" + std::to_string(key * 7919 % 10007)}, {"year", key}}));
        ASSERT_FALSE(open.save(changes));
    }
    Ref<SQLiteStore> opened(Ref<StoreOpening> const& opening, double busySeconds = 60) {
        return SQLiteStore::open(file, std::make_shared<RowSpace>(grown()),
                                 {{NSStoreOpeningOption, opening}, {"NSSQLiteBusyTimeoutOption", busySeconds}}, error);
    }
    std::int64_t inFile(std::string const& what) { return SQLite::Connection(file.path()).integer("SELECT " + what); }

    static constexpr std::int64_t count = 20'000;
    TemporaryFolder folder;
    NSURL const file = folder.url("Notes.db");
    Ref<NSError> error;
};

TEST_F(LongOpening, TellsHowFarItIsAndACancelledOneLeavesTheFileAsItWas) {
    std::vector<StoreProgress> all;
    struct {
        std::string what;
        std::function<bool(StoreProgress const&)> cancelsAt;
    } const rows[] = {
        {"at the first step", [](auto const&) { return true; }},
        {"inside a statement that copies", [](auto const& now) { return now.stage == Stage::Migrating && now.fraction > 0.1; }},
        {"before an index", [](auto const& now) { return now.stage == Stage::MakingIndex; }},
        {"inside the making of an index", [](auto const& now) { return now.stage == Stage::MakingIndex && now.fraction > 0.6; }},
    };
    for (auto const& [what, cancelsAt] : rows) {
        Ref<StoreOpening> opening;
        int toldAfter = 0;
        opening = make<StoreOpening>([&](StoreProgress const& now) {
            toldAfter += opening->isCancelled() ? 1 : 0;
            if (cancelsAt(now)) opening->cancel();
        });
        EXPECT_FALSE(opened(opening)) << what;
        EXPECT_TRUE(opening->isCancelled() && toldAfter == 0) << what << ", told afterwards: " << toldAfter;
        EXPECT_EQ(error->code(), static_cast<std::int64_t>(StoreErrorCode::StoreOpeningCancelled)) << error->description();
        EXPECT_FALSE(StoreRefusal::of(*error)) << "or it would be replaced";
        EXPECT_EQ(inFile("count(*) FROM Book WHERE typeof(year) = 'integer'"), count) << what;
        EXPECT_EQ(inFile("count(*) FROM sqlite_schema WHERE name LIKE '%code%' OR name LIKE 'tessarin_old%'"), 0) << what;
    }
    Ref<StoreOpening> opening;
    opening = make<StoreOpening>([&](StoreProgress const& now) {
        all.push_back(now);
        if (now.fraction == 1) opening->cancel(); // what is saved is not given up
    });
    EXPECT_TRUE(opened(opening)) << error->description();
    EXPECT_EQ(inFile("count(*) FROM Book WHERE typeof(year) = 'real'"), count);
    std::set<Stage> stages;
    double last = 0;
    for (auto const& now : all) {
        EXPECT_GE(now.fraction, std::exchange(last, now.fraction));
        EXPECT_EQ(now.name, "Book");
        stages.insert(now.stage);
    }
    EXPECT_EQ(stages, (std::set{Stage::Migrating, Stage::MakingIndex}));
    EXPECT_TRUE(last == 1 && opening->progress().fraction == 1);
    EXPECT_TRUE(all.size() > 20 && all.size() < 110) << all.size() << " tellings";
    EXPECT_TRUE(opened(nullptr)) << "nothing is left of the connections that were stopped";
}

TEST_F(LongOpening, WaitingForALockEndsWithTheCancellation) {
    SQLite::Connection other(file.path());
    other.execute("BEGIN IMMEDIATE"); // the migration needs that lock
    for (auto const cancelsBefore : {true, false}) {
        auto const opening = make<StoreOpening>();
        if (cancelsBefore) opening->cancel();
        std::thread waiting([&] { EXPECT_FALSE(opened(opening, 0.01)); });
        opening->cancel();
        waiting.join();
        EXPECT_EQ(error->code(), static_cast<std::int64_t>(StoreErrorCode::StoreOpeningCancelled)) << error->description();
    }
    other.execute("COMMIT");
    auto const opening = make<StoreOpening>();
    EXPECT_TRUE(opened(opening)) << error->description();
    opening->cancel();
    EXPECT_EQ(opening->progress().fraction, 1) << "it was over";
}

} // namespace
} // namespace Tessarin::tests
