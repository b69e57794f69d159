#include "Tessarin/platform/objectgraph/persistence/migration/MigrationPlan.h"

#include "Tessarin/platform/objectgraph/persistence/migration/MigrationTellerPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/migration/SQLiteMigrationPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteVerdictPrivate.h"
#include "Tessarin/platform/sqlite/Transaction.h"

namespace Tessarin {
namespace {

/// Runs what may refuse or fail, and says how.
template <class Work> std::optional<MigrationPlan> attempted(Ref<NSError>& error, Work work) {
    error = nullptr;
    try {
        return work();
    } catch (ErrorException const& failure) {
        error = failure.error();
    } // SQLite's failures are such, too
    return {};
}

} // namespace

std::optional<MigrationPlan> MigrationPlan::between(NSManagedObjectModel const& from, NSManagedObjectModel const& to,
                                                    Ref<NSError>& error) {
    return attempted(error, [&] {
        ModelMapping const mapping(from, to);
        for (auto const& [kind, entity, property, reason] : conditionsOf(mapping)) {
            bool const isHopeless = kind == MigrationCondition::Kind::NoRecords || kind == MigrationCondition::Kind::NoValues;
            if (property && isHopeless) throw Refused::noRule(entity->name(), property->name(), reason);
        }
        MigrationPlan plan;
        std::vector<std::int64_t> const ofFrom(from.entities().size()), ofTo(to.entities().size()); // numbers do not matter
        plan.isNeeded_ = storedModelText(from, ofFrom) != storedModelText(to, ofTo);
        plan.lines_ = MigrationTeller(mapping).lines();
        return plan;
    });
}

std::optional<MigrationPlan> MigrationPlan::dryRun(NSURL const& file, Ref<NSManagedObjectModel> const& model,
                                                   Ref<NSError>& error) {
    return attempted(error, [&] {
        SQLite::Connection connection(file.path(), {.access = SQLite::Access::Write});
        SQLite::Transaction const transaction(connection); // never committed
        auto const text = connection.text("SELECT value FROM tessarin_store WHERE key = 'model'");
        auto const stored = storedModelOfText(text);
        if (!stored) throw Refused::because("the description of its model is damaged");
        RowSpace space(model);
        SQLiteOpeningProgress untold(nullptr, connection);
        SQLiteMigration migration(connection, *stored, space, untold);
        MigrationPlan plan;
        plan.lines_ =
            MigrationTeller(migration.mapping(), [&](NSEntityDescription const& old) { return migration.countOf(old); }).lines();
        auto const numbers = storedNumbers(connection, *model);
        plan.isNeeded_ = !numbers || text != storedModelText(*model, *numbers);
        if (plan.isNeeded_) migration.run();
        return plan;
    });
}

std::string MigrationPlan::description() const {
    if (lines_.empty()) return isNeeded_ ? "Only indexes or the like change.\n" : "Nothing changes.\n";
    std::string text;
    for (auto const& line : lines_) text += line + "\n";
    return text;
}

} // namespace Tessarin
