// What keeps an object from being saved.
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowLayout.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"

#include <limits>

namespace Tessarin {
namespace {

Ref<NSError> unstorable(NSEntityDescription const& entity, NSAttributeDescription const& attribute) {
    return storeError(StoreErrorCode::UnsupportedAttribute,
                      entity.name() + "." + attribute.name() +
                          " is of a kind that cannot be stored: derived, transformable, composite or undefined.");
}

bool fitsWidth(NSAttributeType type, std::int64_t value) {
    if (type == NSAttributeType::Integer16) return std::in_range<std::int16_t>(value);
    if (type == NSAttributeType::Integer32) return std::in_range<std::int32_t>(value);
    return true;
}

/// The attributes whose value has to be looked at: all of a new object, the changed ones of another.
bool isToBeChecked(ObjectState& state, std::size_t property) {
    return state.has(ObjectState::Inserted) || (state.extras && state.extras->value(property));
}

std::optional<std::size_t> changedCount(NSManagedObject& object, NSRelationshipDescription const& relationship) {
    auto& state = GraphAccess::state(object);
    if (!relationship.isToMany()) {
        if (!isToBeChecked(state, relationship.index())) return {};
        return referenceOf(object, relationship) != 0;
    }
    auto const* toMany = state.extras ? state.extras->find(relationship.index()) : nullptr;
    if (!state.has(ObjectState::Inserted) && (!toMany || !toMany->isChanged())) return {};
    return memberKeys(object, relationship).size();
}

} // namespace

Ref<NSError> valueProblem(NSEntityDescription const& entity, NSAttributeDescription const& attribute, Value const& value) {
    CellType type{};
    bool const isStorable = !attribute.isDerived() && cellTypeOf(attribute.attributeType(), type);
    if (!isStorable) return value.isAbsent() ? nullptr : unstorable(entity, attribute);
    if (value.isNumber() && !fitsWidth(attribute.attributeType(), value.integer()))
        return storeError(StoreErrorCode::ValueTooWide, entity.name() + "." + attribute.name() + " cannot hold " +
                                                            value.description() + ": it is wider than the attribute.");
    return attribute.validate(value);
}

Ref<NSError> sizeProblem(NSManagedObject& object) {
    // SQLite's limit for a value and for a record, less what the record itself takes.
    static constexpr std::size_t mostBytes = 1'000'000'000, bytesPerCell = 16, header = 64;
    auto const& state = GraphAccess::state(object);
    if (!state.extras) return nullptr;
    std::size_t changed = 0, largest = 0;
    NSPropertyDescription const* culprit = nullptr;
    for (auto const& [property, value] : state.extras->values) {
        if (object.entity().properties()[property]->isTransient()) continue;
        auto const kind = value.kind();
        auto const bytes = kind == Value::Kind::Text ? value.text().size() : kind == Value::Kind::Data ? value.bytes().size() : 0;
        changed += bytes;
        if (bytes <= largest) continue;
        largest = bytes;
        culprit = object.entity().properties()[property];
    }
    if (!culprit) return nullptr;
    auto total = changed + header + bytesPerCell * state.layout->cells().size();
    auto const mayAdd = state.row ? state.row.block().capacity : 0;
    if (total + mayAdd <= mostBytes) return nullptr;
    for (std::size_t cell = 0; state.row && cell < state.layout->cells().size(); ++cell)
        if (isHeapCell(state.layout->cells()[cell].type) && !state.extras->value(state.layout->cells()[cell].property->index()))
            total += state.row->text(cell).size();
    if (total <= mostBytes) return nullptr;
    return storeError(StoreErrorCode::ValueTooBig,
                      object.entity().name() + "." + culprit->name() + " is too big: with it the record has " +
                          std::to_string(total) + " bytes, and a store holds " + std::to_string(mostBytes) + ".",
                      {{"NSValidationErrorKey", culprit->name()}});
}

Ref<NSError> NSManagedObject::validateForSave() {
    auto* context = state_.link()->contextState();
    if (!context) return nullptr;
    auto const& rules = context->rules.of(entity());
    for (auto const* attribute : rules.checkedAttributes)
        if (isToBeChecked(state_, attribute->index()))
            if (auto error = valueProblem(entity(), *attribute, attributeValueAt(*attribute))) return error;
    for (auto const* relationship : rules.checkedRelationships)
        if (auto const count = changedCount(*this, *relationship))
            if (auto error = relationship->validateCount(*count)) return error;
    return nullptr;
}

} // namespace Tessarin
