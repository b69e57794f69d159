#include "Tessarin/platform/objectgraph/persistence/MigrationPlan.h"

#include "Tessarin/platform/objectgraph/persistence/SQLiteMigrationPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteStoredModelPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteVerdictPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/sqlite/Transaction.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {
namespace {

using CountOf = FunctionRef<std::string(NSEntityDescription const& old)>; // " (12 records)", or nothing

std::string kindOf(NSPropertyDescription const& property) {
    if (auto const* attribute = property.asAttribute()) return nameOf(attribute->attributeType());
    auto const& relationship = *property.asRelationship();
    return fmt::format("{}to-{} {}", relationship.isOrdered() ? "ordered " : "", relationship.isToMany() ? "many" : "one",
                       relationship.destinationEntity()->name());
}

std::string parentOf(NSEntityDescription const& entity) { return entity.superentity() ? entity.superentity()->name() : "nobody"; }

/// Tells the differences in the order of the new model, then what goes.
class Teller {
public:
    Teller(NSManagedObjectModel const& from, NSManagedObjectModel const& to, ModelMapping const& mapping, CountOf count)
        : from_(from), to_(to), mapping_(mapping), count_(count) {}

    std::vector<std::string> lines() {
        for (auto const& entity : to_.entities()) tell(*entity);
        for (auto const& entity : from_.entities()) tellGone(*entity);
        return std::move(lines_);
    }

private:
    template <class... Arguments> void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        lines_.push_back(fmt::format(format, std::forward<Arguments>(arguments)...));
    }

    void tell(NSEntityDescription const& entity) {
        auto const* source = mapping_.sourceOf(entity);
        if (!source) return add("{}: new", entity.name());
        if (source->name() != entity.name()) add("{}: was {}{}", entity.name(), source->name(), count_(*source));
        auto const* parent = entity.superentity();
        if ((parent ? mapping_.sourceOf(*parent) : nullptr) != source->superentity())
            add("{}: inherited from {}, inherits from {}", entity.name(), parentOf(*source), parentOf(entity));
        for (auto const* property : entity.properties())
            if (property->entity() == &entity && !property->isTransient()) tell(entity, *property);
        for (auto const* old : source->properties())
            if (old->entity() == source && !old->isTransient() && !isUsed(entity, *old)) add("{}.{}: goes with its values", entity.name(), old->name());
    }

    bool isUsed(NSEntityDescription const& entity, NSPropertyDescription const& old) const {
        return std::ranges::any_of(entity.properties(), [&](auto const* property) { return mapping_.sourceOf(entity, *property) == &old; });
    }

    void tell(NSEntityDescription const& entity, NSPropertyDescription const& property) {
        auto const name = entity.name() + "." + property.name();
        auto const* source = mapping_.sourceOf(entity, property);
        auto const* attribute = property.asAttribute();
        auto const byDefault = attribute && !attribute->defaultValue().isAbsent() ? ", " + attribute->defaultValue().description() + " in every record" : "";
        if (!source) return add("{}: new{}", name, byDefault);
        if (source->name() != property.name()) add("{}: was {}", name, source->name());
        if (auto const was = kindOf(*source), is = kindOf(property); was != is && !isOnlyRenamed(*source, property)) add("{}: {} becomes {}", name, was, is);
        if (source->isOptional() == property.isOptional()) return;
        property.isOptional() ? add("{}: need not have a value any more", name) : add("{}: must have a value{}", name, attribute ? ", its default where it has none" : "");
    }

    /// Whether a relationship leads where it led, under another name.
    bool isOnlyRenamed(NSPropertyDescription const& old, NSPropertyDescription const& now) const {
        auto const *was = old.asRelationship(), *is = now.asRelationship();
        return was && is && was->isToMany() == is->isToMany() && was->isOrdered() == is->isOrdered() &&
               mapping_.sourceOf(*is->destinationEntity()) == was->destinationEntity();
    }

    void tellGone(NSEntityDescription const& old) {
        for (auto const& entity : to_.entities())
            if (mapping_.sourceOf(*entity) == &old) return;
        add("{}: goes with its records{}", old.name(), count_(old));
    }

    NSManagedObjectModel const& from_;
    NSManagedObjectModel const& to_;
    ModelMapping const& mapping_;
    CountOf count_;
    std::vector<std::string> lines_;
};

/// Runs what may refuse or fail, and says how.
template <class Work> std::optional<MigrationPlan> attempted(Ref<NSError>& error, Work work) {
    error = nullptr;
    try {
        return work();
    } catch (ErrorException const& failure) { error = failure.error(); } // SQLite's failures are such, too
    return {};
}

} // namespace

std::optional<MigrationPlan> MigrationPlan::between(NSManagedObjectModel const& from, NSManagedObjectModel const& to, Ref<NSError>& error) {
    return attempted(error, [&] {
        MigrationPlan plan;
        plan.isNeeded_ = from.versionHash() != to.versionHash();
        plan.lines_ = Teller(from, to, ModelMapping(from, to), [](NSEntityDescription const&) { return std::string(); }).lines();
        return plan;
    });
}

std::optional<MigrationPlan> MigrationPlan::dryRun(NSURL const& file, Ref<NSManagedObjectModel> const& model, Ref<NSError>& error) {
    return attempted(error, [&] {
        SQLite::Connection connection(file.path(), {.access = SQLite::Access::Write});
        SQLite::Transaction const transaction(connection); // never committed
        auto const text = connection.text("SELECT value FROM tessarin_store WHERE key = 'model'");
        auto const stored = storedModelOfText(text);
        if (!stored) throw Refused::because("the description of its model is damaged");
        RowSpace space(model);
        SQLiteMigration migration(connection, *stored, space);
        MigrationPlan plan;
        plan.lines_ = Teller(*stored->model, *model, migration.mapping(), [&](NSEntityDescription const& old) {
                          auto const count = migration.countOf(old);
                          return fmt::format(" ({} record{})", count, count == 1 ? "" : "s");
                      }).lines();
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
