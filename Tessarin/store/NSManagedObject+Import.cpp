#include "Tessarin/store/NSManagedObject+Import.h"

#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/runtime/NestingPrivate.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <utility>

namespace Tessarin {
namespace {

/// What a conversion says: a value to store (absent clears), or to leave the attribute as it is.
using Converted = std::optional<Value>;

template <class Number> std::optional<Number> parsed(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1); // a sign that from_chars does not know
    Number number{};
    auto const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end || text.empty()) return {};
    return number;
}

bool isNumber(Value const& value) { return value.isNumber() || value.kind() == Value::Kind::Decimal; }

/// Numbers as they are, texts that read as one; anything else clears.
template <class Number> Value number(Value const& value) {
    if (isNumber(value)) return value;
    if (!value.isText()) return {};
    auto const result = parsed<Number>(value.text());
    return result ? Value(*result) : Value();
}

bool isTrue(std::string_view text) { return text == "true" || text == "1" || text == "y"; }

/// A number beyond all integers clears, rather than to become the nearest of them; so does what is no number.
bool fitsInteger(Value const& value) {
    static constexpr double limit = 0x1p63;
    switch (value.kind()) {
    case Value::Kind::Float:
    case Value::Kind::Double: return value.number() >= -limit && value.number() < limit;
    case Value::Kind::Decimal: return value.decimal() >= Decimal(INT64_MIN) && value.decimal() <= Decimal(INT64_MAX);
    default: return true;
    }
}

Converted boolean(Value const& value) {
    if (value.isText()) return Value(isTrue(value.text()));
    if (isNumber(value) && !std::isnan(value.number())) return Value(value.number() != 0);
    return {};
}

Converted date(NSManagedObject& object, Value const& value) {
    if (!value.isText()) return {};
    return Value(object.dictionaryStringToDate(std::string{value.text()}));
}

Converted converted(NSManagedObject& object, NSAttributeType type, Value const& value) {
    switch (type) {
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64: return fitsInteger(value) ? number<std::int64_t>(value) : Value();
    case NSAttributeType::Double: return number<double>(value);
    case NSAttributeType::Float: return number<float>(value);
    case NSAttributeType::Decimal: // single precision is meant: callers round their amounts to it
        return isNumber(value) ? Value(static_cast<float>(value.number())) : number<float>(value);
    case NSAttributeType::String: return value.isText() ? value : Value();
    case NSAttributeType::Boolean: return boolean(value);
    case NSAttributeType::Date: return date(object, value);
    default: return {}; // of no other kind is anything imported
    }
}

/// Dictionaries in one another that are being imported on this thread.
class Level {
public:
    Level() noexcept { ++count_; }
    ~Level() {
        if (--count_ == 0) hasTold_ = false;
    }
    Level(Level const&) = delete;
    Level& operator=(Level const&) = delete;

    static bool isDeepest() {
        if (count_ <= deepestLevel) return false;
        if (!std::exchange(hasTold_, true))
            std::fprintf(stderr, "Tessarin: dictionaries that are nested more than %zu deep are not imported\n", deepestLevel);
        return true;
    }

private:
    static thread_local std::size_t count_;
    static thread_local bool hasTold_;
};
thread_local std::size_t Level::count_ = 0;
thread_local bool Level::hasTold_ = false;

bool has(NSManagedObject const& object, std::uint32_t hook) { return (object.objectClass().ownHooks() & hook) != 0; }

} // namespace

NSManagedObject& NSManagedObjectImport::home() noexcept { return static_cast<NSManagedObject&>(*this); }

// Entries come by the hundred thousand: a class without hooks of its own is not asked for what is known.
void NSManagedObjectImport::importDictionary(Dictionary const& dictionary) {
    Level const level;
    auto& object = home();
    auto const& entity = object.entity();
    bool const renames = has(object, NSManagedObject::importKeyHook);
    bool const setsPlainly = !has(object, NSManagedObject::setValueForKeyHook);
    for (auto const& [key, value] : dictionary) {
        auto const name = renames ? object.dictionaryKeyToAttributeName(key.string()) : std::nullopt;
        if (renames && !name) continue;
        // Looked up under the raw key, stored under the name: a hook that renames has to keep the raw key an attribute, too.
        auto const* property = entity.propertyNamed(key.view());
        if (!property) continue;
        if (auto const* attribute = property->asAttribute())
            importValue(*attribute, name ? std::string_view(*name) : key.view(), value, setsPlainly && !renames);
        else if (value.kind() == Value::Kind::Dictionary && !level.isDeepest())
            importRelationship(*property->asRelationship(), value.dictionary());
    }
}

void NSManagedObjectImport::importValue(NSAttributeDescription const& attribute, std::string_view name, Value const& value,
                                        bool setsPlainly) {
    auto& object = home();
    auto result = converted(object, attribute.attributeType(), value);
    if (!result) return;
    if (setsPlainly)
        object.setAttribute(attribute, *std::move(result));
    else
        object.setValueForKey(*std::move(result), name);
}

Ref<NSManagedObject> NSManagedObjectImport::existing(NSRelationshipDescription const& relationship,
                                                     Dictionary const& dictionary) {
    return home().findExistingRelationship(relationship.destinationEntity()->name(), dictionary);
}

/// Links it before its own import, so that it is linked when its own relationships are imported.
Ref<NSManagedObject> NSManagedObjectImport::attach(NSRelationshipDescription const& relationship, Ref<NSManagedObject> object,
                                                   Dictionary const& dictionary) {
    auto& owner = home();
    if (relationship.isToMany())
        owner.mutableSetValueForKey(relationship.name()).addObject(object);
    else if (has(owner, NSManagedObject::setValueForKeyHook))
        owner.setValueForKey(object, relationship.name());
    else
        owner.setDestination(relationship, object.get());
    object->importDictionary(dictionary);
    return object;
}

Ref<NSManagedObject> NSManagedObjectImport::importRelationship(std::string_view relationship, Dictionary const& fromDictionary) {
    auto const* property = home().entity().propertyNamed(relationship);
    auto const* description = property ? property->asRelationship() : nullptr;
    return description ? importRelationship(*description, fromDictionary) : nullptr;
}

Ref<NSManagedObject> NSManagedObjectImport::importRelationship(NSRelationshipDescription const& relationship,
                                                               Dictionary const& dictionary) {
    if (auto found = existing(relationship, dictionary)) return attach(relationship, std::move(found), dictionary);
    return addRelationship(relationship, dictionary);
}

Ref<NSManagedObject> NSManagedObjectImport::addRelationship(std::string_view relationship, Dictionary const& fromDictionary) {
    auto const* property = home().entity().propertyNamed(relationship);
    auto const* description = property ? property->asRelationship() : nullptr;
    return description ? addRelationship(*description, fromDictionary) : nullptr;
}

Ref<NSManagedObject> NSManagedObjectImport::addRelationship(NSRelationshipDescription const& relationship,
                                                            Dictionary const& dictionary) {
    auto object = existing(relationship, dictionary);
    auto const& destination = *relationship.destinationEntity();
    if (!object && !destination.isAbstract()) // else only the hook could say of which entity it is
        if (auto const context = home().moc()) object = context->insertNewObject(destination.name());
    return object ? attach(relationship, std::move(object), dictionary) : nullptr;
}

std::optional<bool> NSManagedObjectImport::dictionaryStringToBool(std::string_view text) { return isTrue(text); }

} // namespace Tessarin
