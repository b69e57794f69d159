#include "StoreFixture.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreOpening.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRefusal.h"
#include "Tessarin/platform/sqlite/Connection.h"
#include <functional>

namespace Tessarin::tests {
namespace {

TEST(LongOpening, TellsHowFarItIsAndACancelledOneLeavesTheFileAsItWas) {
    static constexpr std::int64_t count = 20'000;
    TemporaryFolder const folder;
    auto const file = folder.url("Notes.db");
    auto const model = [](NSAttributeType year, bool indexed) {
        return ModelBuilder()
            .entity("Book")
            .attribute("code", NSAttributeType::String, {.indexed = indexed, .fullText = indexed})
            .attribute("year", year)
            .build();
    };
    {
        OpenStore open(file, model(NSAttributeType::Integer32, false));
        std::vector<RecordChange> changes;
        for (RecordKey key = open.store->reserveKeys(count, open.error); changes.size() < count; ++key)
            changes.push_back(open.insertion("Book", key, {{"code", "C" + std::to_string(key * 7919 % 10007)}, {"year", key}}));
        ASSERT_FALSE(open.save(changes));
    }
    Ref<NSError> error;
    auto const opened = [&](Ref<StoreOpening> const& opening) {
        auto const space = std::make_shared<RowSpace>(model(NSAttributeType::Double, true));
        return SQLiteStore::open(file, space, {{NSStoreOpeningOption, opening}, {"NSSQLiteBusyTimeoutOption", 0.01}}, error);
    };
    auto const inFile = [&](std::string const& what) { return SQLite::Connection(file.path()).integer("SELECT " + what); };
    using Stage = StoreProgress::Stage;
    SQLite::Connection other(file.path());
    std::function<bool(StoreProgress const&)> const rows[] = {
        nullptr, // while another connection has the lock that it needs
        [](auto const&) { return true; },
        [](auto const& now) { return now.stage == Stage::Migrating && now.fraction > 0.1; }, // inside a statement
        [](auto const& now) { return now.stage == Stage::MakingIndex; },
        [](auto const& now) { return now.stage == Stage::MakingIndex && now.fraction > 0.6; },
        [](auto const& now) { return now.stage == Stage::MakingIndex && now.fraction > 0.7; }}; // of words
    for (auto const& cancelsAt : rows) {
        SCOPED_TRACE(&cancelsAt - rows);
        Ref<StoreOpening> opening;
        opening = make<StoreOpening>([&](StoreProgress const& now) {
            EXPECT_FALSE(opening->isCancelled()) << "told afterwards";
            if (cancelsAt(now)) opening->cancel();
        });
        other.execute(cancelsAt ? "SELECT 1" : "BEGIN IMMEDIATE");
        std::thread waiting([&] { EXPECT_FALSE(opened(opening)); });
        if (!cancelsAt) opening->cancel();
        waiting.join();
        other.execute(cancelsAt ? "SELECT 1" : "COMMIT");
        EXPECT_EQ(error->code(), static_cast<std::int64_t>(StoreErrorCode::StoreOpeningCancelled)) << error->description();
        EXPECT_FALSE(StoreRefusal::of(*error)) << "or it would be replaced";
        EXPECT_EQ(inFile("count(*) FROM Book WHERE typeof(year) = 'integer'"), count);
        EXPECT_EQ(inFile("count(*) FROM sqlite_schema WHERE name LIKE '%code%' OR name LIKE 'tessarin_old%' OR name LIKE '%search%'"), 0);
    }
    double last = 0;
    std::size_t told[3] = {};
    Ref<StoreOpening> opening;
    opening = make<StoreOpening>([&](StoreProgress const& now) {
        EXPECT_TRUE(now.fraction >= std::exchange(last, now.fraction) && now.name == "Book");
        ++told[static_cast<int>(now.stage)];
        if (now.fraction == 1) opening->cancel(); // what is saved is not given up
    });
    EXPECT_TRUE(opened(opening)) << error->description();
    EXPECT_EQ(inFile("count(*) FROM Book WHERE typeof(year) = 'real'"), count);
    EXPECT_TRUE(last == 1 && told[1] > 10 && told[2] > 10 && told[1] + told[2] < 110) << told[1] << ", " << told[2];
}

} // namespace
} // namespace Tessarin::tests
