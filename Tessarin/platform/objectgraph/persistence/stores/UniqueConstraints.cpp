#include "Tessarin/platform/objectgraph/persistence/stores/UniqueConstraintsPrivate.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <algorithm>
#include <cstring>

namespace Tessarin {
namespace {

template <class T> void append(std::string& text, T value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    text.append(bytes, sizeof bytes);
}

bool canBeStored(NSPropertyDescription const& property) {
    CellType type{};
    auto const* attribute = property.asAttribute();
    if (property.isTransient()) return false;
    return attribute ? !attribute->isDerived() && cellTypeOf(attribute->attributeType(), type)
                     : !property.asRelationship()->isToMany();
}

} // namespace

std::optional<std::string> UniqueConstraint::valuesOf(Row const& row) const {
    std::string values;
    for (auto const* property : properties) {
        auto const at = row.layout().cellOf(property->index());
        auto const cell = static_cast<std::size_t>(at);
        if (at == RowLayout::noCell || !row.isPresent(cell)) return {};
        switch (row.layout().cells()[cell].type) {
        case CellType::Integer:
        case CellType::Reference: append(values, row.integer(cell)); break;
        case CellType::Real: append(values, row.real(cell) + 0.0); break; // -0 is 0
        case CellType::Text:
        case CellType::Bytes:
            append(values, row.text(cell).size());
            values += row.text(cell);
            break;
        }
    }
    return values;
}

Ref<NSError> UniqueConstraint::violation(Dictionary more) const {
    List names;
    std::string text;
    for (auto const* property : properties) {
        names.push_back(property->name());
        text += (text.empty() ? "" : ", ") + property->name();
    }
    more.set("entity", Value(entity->name()));
    more.set("attributes", Value(std::move(names)));
    return storeError(StoreErrorCode::ConstraintConflict, entity->name() + ": another record has the same " + text,
                      std::move(more));
}

UniqueConstraints::UniqueConstraints(NSManagedObjectModel const& model) : byEntity_(model.entities().size()) {
    for (auto const& entity : model.entities())
        for (auto const& properties : entity->uniquenessConstraints()) {
            if (properties.empty() || !std::ranges::all_of(properties, [](auto const* each) { return canBeStored(*each); }))
                continue;
            auto const& made =
                *all_.emplace_back(std::make_unique<UniqueConstraint>(UniqueConstraint{entity.get(), properties, all_.size()}));
            for (auto const& bound : model.entities())
                if (bound->isKindOf(entity.get())) byEntity_[bound->index()].push_back(&made);
        }
}

} // namespace Tessarin
