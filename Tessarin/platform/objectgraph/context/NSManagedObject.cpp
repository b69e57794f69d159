#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

#include <algorithm>

namespace Tessarin {
namespace {

[[noreturn]] void unknownKey(NSManagedObject const& object, std::string_view key) {
    fatal(object.objectClass().name() + " of the entity " + object.entity().name() +
          " is not key value coding-compliant for the key \"" + std::string{key} + "\"");
}

NSPropertyDescription const& propertyOf(NSManagedObject const& object, std::string_view key) {
    if (auto const* property = object.entity().propertyNamed(key)) return *property;
    unknownKey(object, key);
}

bool isKnownBelow(NSEntityDescription const& entity, std::string_view key) {
    return entity.propertyNamed(key) ||
           std::ranges::any_of(entity.subentities(), [&](auto const* each) { return isKnownBelow(*each, key); });
}

} // namespace

NSPropertyDescription const& PropertyHandle::lookUp(NSEntityDescription const& entity) const {
    auto const* property = entity.propertyNamed(name_);
    if (!property) fatal("the entity " + entity.name() + " has no property \"" + std::string{name_} + "\"");
    last_.store(property->mark(), std::memory_order_relaxed);
    return *property;
}

void ObjectExtrasEnd::operator()(ObjectExtras* extras) const noexcept { delete extras; }

NSManagedObject::~NSManagedObject() {
    if (state_.link()) state_.link()->remove(*this, state_.key);
}

Ref<NSManagedObjectID> NSManagedObject::objectID() const {
    auto& extras = const_cast<ObjectState&>(state_).more();
    if (!extras.id) extras.id = state_.link()->coordinator().identities().identity(entity(), state_.link()->current(state_.key));
    return extras.id;
}

IdentityTable const& NSManagedObject::identityTable() const { return state_.link()->coordinator().identities(); }

Ref<NSManagedObjectContext> NSManagedObject::managedObjectContext() const {
    if (!state_.link() || (isDeleted() && state_.has(ObjectState::Gone))) return nullptr;
    return state_.link()->context();
}

NSObject const& NSManagedObject::predicateIdentity() const { return *objectID(); }

void NSManagedObject::fireFault() {
    if (!state_.row)
        if (auto* context = state_.link()->contextState()) fillFault(*context, *this); // when it throws, this stays a fault
    state_.clear(ObjectState::Fault);
    if (auto* context = state_.link()->contextState()) context->values.note(*this);
    awakeFromFetch();
}

Value NSManagedObject::attributeValueAt(NSPropertyDescription const& property) {
    fire();
    if (state_.extras)
        if (auto const* value = state_.extras->value(property.index())) return *value;
    auto const cell = state_.layout->cellOf(property.index());
    return state_.row && cell != RowLayout::noCell ? state_.row->value(static_cast<std::size_t>(cell)) : Value{};
}

std::string_view NSManagedObject::shownText(NSPropertyDescription const& property) {
    if (state_.extras)
        if (auto const* value = state_.extras->value(property.index())) return value->isText() ? value->text() : value->urlText();
    auto const cell = state_.layout->cellOf(property.index());
    return state_.row && cell != RowLayout::noCell ? state_.row->text(static_cast<std::size_t>(cell)) : std::string_view{};
}

double NSManagedObject::shownReal(NSPropertyDescription const& property) {
    auto const value = attributeValueAt(property);
    return value.kind() == Value::Kind::Date ? value.dateSeconds() : value.number();
}

std::int64_t NSManagedObject::shownInteger(NSPropertyDescription const& property) { return attributeValueAt(property).integer(); }

void NSManagedObject::setAttribute(NSAttributeDescription const& attribute, Value value) {
    if (!attribute.holdsKindOf(value))
        fatal("unacceptable value for the attribute " + entity().name() + "." + attribute.name() + ": " + value.description());
    fire();
    if (!value.isAbsent()) value = attributeValue(attribute.attributeType(), std::move(value));
    if (auto* recorder = recorderOf(*this)) recorder->noteValue(*this, attribute, attributeValueAt(attribute), value);
    auto const property = static_cast<std::uint32_t>(attribute.index());
    auto& extras = state_.more();
    if (auto* present = extras.value(property))
        *present = std::move(value);
    else {
        if (extras.values.empty()) extras.values.reserve(std::min<std::size_t>(8, entity().properties().size()));
        extras.values.emplace_back(property, std::move(value));
    }
    markChanged(*this, isInserted() ? ObjectState::Inserted : ObjectState::Updated);
    if (auto* context = state_.link()->contextState()) context->values.note(*this, attribute);
}

Value NSManagedObject::valueForKey(std::string_view key) {
    if (key == "self") return self<NSObject>();
    auto const* found = entity().propertyNamed(key);
    if (!found && isKnownBelow(*entity().rootEntity(), key)) return {}; // a request for an ancestor may ask for it
    if (!found) unknownKey(*this, key);
    auto const& property = *found;
    auto const* relationship = property.asRelationship();
    if (!relationship) return attributeValueAt(property);
    if (!relationship->isToMany()) return destination(*relationship);
    auto const objects = destinations(*relationship);
    if (relationship->isOrdered()) return Value(List(objects.begin(), objects.end()));
    return Value(ValueSet(objects.begin(), objects.end()));
}

void NSManagedObject::setValueForKey(Value value, std::string_view key) {
    auto const& property = propertyOf(*this, key);
    if (auto const* attribute = property.asAttribute()) return setAttribute(*attribute, std::move(value));
    auto const& relationship = *property.asRelationship();
    if (relationship.isToMany()) return setDestinations(relationship, value);
    auto const object = detail::castToKnown<NSManagedObject>(value.object());
    if (!object && !value.isAbsent())
        fatal("unacceptable value for the relationship " + entity().name() + "." + relationship.name() + ": " +
              value.description());
    setDestination(relationship, object.get());
}

Dictionary NSManagedObject::changedValues() {
    if (queuesAreChecked()) requireQueue();
    Dictionary result;
    if (!state_.extras || !hasChanges()) return result;
    for (auto const& [index, value] : state_.extras->values) {
        auto const* property = entity().properties()[index];
        result.set(property->name(), property->asRelationship() ? Value(destination(*property->asRelationship())) : value);
    }
    return result;
}

std::string NSManagedObject::description() const {
    auto& object = const_cast<NSManagedObject&>(*this);
    std::string text =
        "<" + objectClass().name() + "> (entity: " + entity().name() + "; id: " + objectID()->description() + "; data: ";
    if (isFault()) return text + "<fault>)";
    text += "{";
    for (auto const* attribute : entity().attributes())
        text += " " + attribute->name() + " = " + object.attributeValueAt(*attribute).description() + ";";
    return text + " })";
}

} // namespace Tessarin
