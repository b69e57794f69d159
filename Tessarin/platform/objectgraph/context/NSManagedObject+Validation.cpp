// What keeps an object from being saved.
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowLayout.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <vector>

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

namespace {

/// As a setter would keep it.
Ref<NSError> problemOf(NSEntityDescription const& entity, NSAttributeDescription const& attribute, Value const& value) {
    bool const isOfItsKind = attribute.holdsKindOf(value);
    if (attribute.isTransient()) return isOfItsKind ? nullptr : attribute.validate(value);
    if (!isOfItsKind || value.isAbsent()) return valueProblem(entity, attribute, value);
    return valueProblem(entity, attribute, attributeValue(attribute.attributeType(), value));
}

/// How many destinations a relationship of the context's objects would have; absent for what cannot be any.
std::optional<std::size_t> countOf(NSRelationshipDescription const& relationship, NSManagedObjectContext const& context,
                                   Value const& value) {
    std::vector<NSManagedObject const*> objects;
    auto const add = [&](Value const& each) {
        auto const object = each.objectAs<NSManagedObject>();
        if (!object || !object->entity().isKindOf(relationship.destinationEntity())) return false;
        objects.push_back(object.get());
        return object->managedObjectContext().get() == &context;
    };
    bool areAll = true;
    if (relationship.isToMany() && value.kind() == Value::Kind::List)
        for (auto const& each : value.list()) areAll = add(each) && areAll;
    else if (relationship.isToMany() && value.kind() == Value::Kind::Set)
        for (auto const& each : value.set()) areAll = add(each) && areAll;
    else if (!value.isAbsent())
        areAll = !relationship.isToMany() && add(value);
    if (!areAll) return {};
    std::ranges::sort(objects);
    return objects.size() - std::ranges::unique(objects).size();
}

Ref<NSError> problemOf(NSManagedObject const& object, NSPropertyDescription const& property, Value const& value) {
    auto const context = object.managedObjectContext();
    if (!context) return nullptr; // it is saved nowhere
    if (auto const* attribute = property.asAttribute()) return problemOf(object.entity(), *attribute, value);
    auto const& relationship = *property.asRelationship();
    auto const count = countOf(relationship, *context, value);
    if (!count) return relationship.wrongKind(value);
    return relationship.isTransient() ? nullptr : relationship.validateCount(*count);
}

} // namespace

Ref<NSError> NSManagedObject::validate(PropertyHandle const& property, Value const& value) const {
    return problemOf(*this, property.in(entity()), value);
}

Ref<NSError> NSManagedObject::validateValueForKey(Value const& value, std::string_view key) const {
    auto const* property = entity().propertyNamed(key);
    if (!property) fatal("the entity " + entity().name() + " has no property \"" + std::string{key} + "\"");
    return problemOf(*this, *property, value);
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
