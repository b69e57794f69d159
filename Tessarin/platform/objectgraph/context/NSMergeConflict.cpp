#include "Tessarin/platform/objectgraph/context/NSMergeConflict.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {

void NSMergeConflict::init(Ref<NSManagedObject> source, Ref<RowSpace> space, RowConflict conflict) {
    source_ = std::move(source);
    space_ = std::move(space);
    conflict_ = std::make_shared<RowConflict>(std::move(conflict));
    cached_ = space_->cache().find(conflict_->key);
}

void NSMergeConflict::init(Ref<NSManagedObject> source, Ref<RowSpace> space, RowConflict conflict,
                           UniqueConstraint const& constraint, Ref<NSManagedObject> existing) {
    init(std::move(source), std::move(space), std::move(conflict));
    constraint_ = &constraint;
    existing_ = std::move(existing);
}

std::uint64_t NSMergeConflict::oldVersionNumber() const noexcept { return conflict_->base->version(); }
std::uint64_t NSMergeConflict::newVersionNumber() const noexcept { return conflict_->stored ? conflict_->stored->version() : 0; }

std::vector<std::string> NSMergeConflict::uniqueProperties() const {
    std::vector<std::string> names;
    if (constraint_)
        for (auto const* property : constraint_->properties) names.push_back(property->name());
    return names;
}

std::optional<Dictionary> NSMergeConflict::snapshotOf(RowRef const& row) const {
    if (!row) return {};
    auto& identities = GraphAccess::state(*source_).link()->coordinator().identities();
    Dictionary snapshot;
    auto const cells = row->layout().cells();
    for (std::size_t cell = 0; cell < cells.size(); ++cell) {
        auto const* relationship = cells[cell].property->asRelationship();
        auto value = relationship && row->isPresent(cell)
                         ? Value(identities.identity(*relationship->destinationEntity(), row->reference(cell)))
                         : row->value(cell);
        snapshot.set(cells[cell].property->name(), std::move(value));
    }
    return snapshot;
}

Dictionary NSMergeConflict::objectSnapshot() const { return *snapshotOf(conflict_->base); }
std::optional<Dictionary> NSMergeConflict::cachedSnapshot() const { return snapshotOf(cached_); }
std::optional<Dictionary> NSMergeConflict::persistedSnapshot() const { return snapshotOf(conflict_->stored); }

void NSMergeConflict::resolve(NSMergePolicyType type) {
    if (type == NSMergePolicyType::Error) return;
    if (constraint_) {
        auto final = resolvedUnique(type);
        if (!final) return;
        conflict_->final = std::move(final);
    } else
        conflict_->final = resolvedRow(*conflict_, type);
    isResolved_ = true;
}

/// Of a new object: what the record becomes that had the values already. Of a changed one: what it is itself then; none where
/// neither record can give way.
RowRef NSMergeConflict::resolvedUnique(NSMergePolicyType type) const {
    auto const& [entity, key, base, wanted, stored, final] = *conflict_;
    bool const storeWins = type == NSMergePolicyType::MergeByPropertyStoreTrump || type == NSMergePolicyType::Rollback;
    RowBuilder builder;
    if (!source_->isInserted()) {
        if (!storeWins) return {};
        builder.begin(*wanted, wanted->version());
        for (auto const* property : constraint_->properties)
            builder.setCell(static_cast<std::size_t>(base->layout().cellOf(property->index())), *base);
        return builder.finish();
    }
    builder.begin(*stored, stored->version());
    for (std::size_t cell = 0; cell < stored->layout().cells().size(); ++cell) {
        bool const isSet = !wanted->cellEquals(cell, *base) && wanted->isPresent(cell);
        bool const isLacking = !stored->isPresent(cell) && wanted->isPresent(cell);
        if (type == NSMergePolicyType::Overwrite || (type == NSMergePolicyType::MergeByPropertyObjectTrump && isSet) ||
            (type == NSMergePolicyType::MergeByPropertyStoreTrump && isLacking))
            builder.setCell(cell, *wanted);
    }
    return builder.finish();
}

void NSMergeConflict::setResolvedValue(Value const& value, std::string_view attribute) {
    auto const* property = conflict_->entity->propertyNamed(attribute);
    auto const cell =
        property && property->asAttribute() ? conflict_->base->layout().cellOf(property->index()) : RowLayout::noCell;
    if (cell == RowLayout::noCell)
        fatal("the entity " + conflict_->entity->name() + " has no stored attribute \"" + std::string{attribute} + "\"");
    if (!conflict_->final) return;
    RowBuilder builder;
    builder.begin(*conflict_->final, conflict_->final->version());
    if (!builder.setValue(static_cast<std::size_t>(cell), value))
        fatal("unacceptable value for the attribute " + conflict_->entity->name() + "." + property->name() + ": " +
              value.description());
    conflict_->final = builder.finish();
}

std::string NSMergeConflict::description() const {
    auto const& [entity, key, base, wanted, stored, final] = *conflict_;
    if (constraint_) {
        std::string names;
        for (auto const& name : uniqueProperties()) names += (names.empty() ? "" : ", ") + name;
        return entity->name() + "/p" + std::to_string(stored->key()) + " (the same " + names + ")";
    }
    std::string changed = !wanted ? "deleted here" : !stored ? "deleted there" : "";
    if (wanted && stored)
        for (std::size_t cell = 0; cell < base->layout().cells().size(); ++cell)
            if (!wanted->cellEquals(cell, *base) && !stored->cellEquals(cell, *base))
                changed += (changed.empty() ? "" : ", ") + base->layout().cells()[cell].property->name();
    return entity->name() + "/p" + std::to_string(key) + (changed.empty() ? "" : " (" + changed + ")");
}

} // namespace Tessarin
