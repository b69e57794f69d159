#include "Tessarin/platform/objectgraph/context/NSMergeConflict.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/RowBuilder.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {

void NSMergeConflict::init(Ref<NSManagedObject> source, Ref<RowSpace> space, RowConflict conflict) {
    source_ = std::move(source);
    space_ = std::move(space);
    conflict_ = std::move(conflict);
    cached_ = space_->cache().find(conflict_.key);
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

Dictionary NSMergeConflict::objectSnapshot() const { return *snapshotOf(conflict_.base); }
std::optional<Dictionary> NSMergeConflict::cachedSnapshot() const { return snapshotOf(cached_); }
std::optional<Dictionary> NSMergeConflict::persistedSnapshot() const { return snapshotOf(conflict_.stored); }

void NSMergeConflict::resolve(NSMergePolicyType type) {
    if (type == NSMergePolicyType::Error) return;
    conflict_.final = resolvedRow(conflict_, type);
    isResolved_ = true;
}

void NSMergeConflict::setResolvedValue(Value const& value, std::string_view attribute) {
    auto const* property = conflict_.entity->propertyNamed(attribute);
    auto const cell = property && property->asAttribute() ? conflict_.base->layout().cellOf(property->index()) : RowLayout::noCell;
    if (cell == RowLayout::noCell) fatal("the entity " + conflict_.entity->name() + " has no stored attribute \"" + std::string{attribute} + "\"");
    if (!conflict_.final) return;
    RowBuilder builder;
    builder.begin(*conflict_.final, conflict_.final->version());
    if (!builder.setValue(static_cast<std::size_t>(cell), value))
        fatal("unacceptable value for the attribute " + conflict_.entity->name() + "." + property->name() + ": " + value.description());
    conflict_.final = builder.finish();
}

std::string NSMergeConflict::description() const {
    auto const& [entity, key, base, wanted, stored, final] = conflict_;
    std::string changed = !wanted ? "deleted here" : !stored ? "deleted there" : "";
    if (wanted && stored)
        for (std::size_t cell = 0; cell < base->layout().cells().size(); ++cell)
            if (!wanted->cellEquals(cell, *base) && !stored->cellEquals(cell, *base))
                changed += (changed.empty() ? "" : ", ") + base->layout().cells()[cell].property->name();
    return entity->name() + "/p" + std::to_string(key) + (changed.empty() ? "" : " (" + changed + ")");
}

} // namespace Tessarin
