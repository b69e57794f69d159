#include "Tessarin/platform/objectgraph/persistence/ModelMappingPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/RowLayout.h"
#include "Tessarin/platform/objectgraph/persistence/SQLiteVerdictPrivate.h"

#include <algorithm>
#include <unordered_set>

namespace Tessarin {
namespace {

/// Among old things the one that a new thing was: the renaming identifier names the old thing, or is the old thing's own;
/// else it has kept its name.
template <class Old, class New> Old const* sourceAmong(std::span<Old const* const> all, New const& thing) {
    auto const& identifier = thing.renamingIdentifier();
    Old const* best = nullptr;
    int bestRank = 0;
    for (auto const* old : all) {
        int const rank = !identifier.empty() && old->name() == identifier                 ? 3
                         : !identifier.empty() && old->renamingIdentifier() == identifier ? 2
                         : old->name() == thing.name()                                    ? 1
                                                                                          : 0;
        if (rank > bestRank) {
            best = old;
            bestRank = rank;
        }
    }
    return best;
}

bool isStored(NSAttributeDescription const& attribute) {
    CellType type{};
    return !attribute.isTransient() && !attribute.isDerived() && cellTypeOf(attribute.attributeType(), type);
}

[[noreturn]] void refuse(NSEntityDescription const& entity, NSPropertyDescription const& property, std::string reason) {
    throw Refused::noRule(entity.name(), property.name(), std::move(reason));
}

} // namespace

char const* nameOf(NSAttributeType type) noexcept {
    switch (type) {
    case NSAttributeType::Integer16: return "Integer 16";
    case NSAttributeType::Integer32: return "Integer 32";
    case NSAttributeType::Integer64: return "Integer 64";
    case NSAttributeType::Decimal: return "Decimal";
    case NSAttributeType::Double: return "Double";
    case NSAttributeType::Float: return "Float";
    case NSAttributeType::String: return "String";
    case NSAttributeType::Boolean: return "Boolean";
    case NSAttributeType::Date: return "Date";
    case NSAttributeType::BinaryData: return "Binary";
    case NSAttributeType::UUID: return "UUID";
    case NSAttributeType::URI: return "URI";
    default: return "a type that is not stored";
    }
}

bool isWidening(NSAttributeType from, NSAttributeType to) noexcept {
    using Type = NSAttributeType;
    auto const width = [](Type type) {
        return type == Type::Integer16 ? 16 : type == Type::Integer32 ? 32 : type == Type::Integer64 ? 64 : 0;
    };
    if (width(from) != 0) {
        if (width(to) != 0) return width(to) > width(from);
        return to == Type::Decimal || (to == Type::Double && width(from) <= 32) || (to == Type::Float && width(from) == 16);
    }
    return from == Type::Float && to == Type::Double;
}

ModelMapping::ModelMapping(NSManagedObjectModel const& from, NSManagedObjectModel const& to,
                           FunctionRef<bool(NSEntityDescription const&)> hasRecords)
    : from_(from), to_(to) {
    findEntities();
    for (auto const& entity : to.entities())
        if (auto const* source = sourceOf(*entity); source && hasRecords(*source))
            for (auto const* property : entity->properties()) check(*entity, *property);
}

void ModelMapping::findEntities() {
    std::vector<NSEntityDescription const*> old;
    for (auto const& entity : from_.entities()) old.push_back(entity.get());
    std::unordered_set<NSEntityDescription const*> taken;
    sources_.resize(to_.entities().size());
    // Those that say what they were come first: a new entity may bear the name that another one had.
    for (bool const isRenamed : {true, false})
        for (auto const& entity : to_.entities()) {
            auto const& identifier = entity->renamingIdentifier();
            if ((!identifier.empty() && identifier != entity->name()) != isRenamed) continue;
            auto const* source = sourceAmong(std::span<NSEntityDescription const* const>(old), *entity);
            if (source && taken.insert(source).second) sources_[entity->index()] = source;
        }
    dropsEntities_ = taken.size() != old.size();
}

NSPropertyDescription const* ModelMapping::sourceOf(NSEntityDescription const& entity,
                                                    NSPropertyDescription const& property) const {
    auto const* source = sourceOf(entity);
    if (!source) return nullptr;
    auto const* found = sourceAmong(source->properties(), property);
    // One that says that it was this one has it; a new property of the old name starts empty.
    for (auto const* other : entity.properties())
        if (found && other != &property && property.name() == found->name() && other->renamingIdentifier() == found->name())
            return nullptr;
    return found;
}

std::vector<NSRelationshipDescription const*> ModelMapping::sourcesOf(NSRelationshipDescription const& relationship) const {
    std::vector<NSRelationshipDescription const*> found;
    for (auto const& entity : to_.entities()) {
        if (!entity->isKindOf(relationship.entity())) continue;
        auto const* source = sourceOf(*entity, relationship);
        auto const* old = source ? source->asRelationship() : nullptr;
        if (old && !old->isTransient() && std::ranges::find(found, old) == found.end()) found.push_back(old);
    }
    return found;
}

void ModelMapping::check(NSEntityDescription const& entity, NSPropertyDescription const& property) const {
    if (property.isTransient()) return;
    auto const* source = sourceOf(entity, property);
    if (source && source->isTransient()) source = nullptr;
    if (auto const* attribute = property.asAttribute())
        checkAttribute(entity, *attribute, source);
    else
        checkRelationship(entity, *property.asRelationship(), source);
}

void ModelMapping::checkAttribute(NSEntityDescription const& entity, NSAttributeDescription const& attribute,
                                  NSPropertyDescription const* source) const {
    if (!isStored(attribute)) return;
    if (source && !source->asAttribute()) refuse(entity, attribute, "it was a relationship and is an attribute");
    bool const hasValues = source && isStored(*source->asAttribute());
    if (!attribute.isOptional() && attribute.defaultValue().isAbsent()) {
        if (!hasValues) refuse(entity, attribute, "it is new and mandatory, and has no default");
        if (source->isOptional()) refuse(entity, attribute, "it became mandatory and has no default");
    }
    if (!hasValues) return;
    auto const before = source->asAttribute()->attributeType(), now = attribute.attributeType();
    if (before != now && !isWidening(before, now))
        refuse(entity, attribute, std::string("its type changed from ") + nameOf(before) + " to " + nameOf(now));
}

void ModelMapping::checkRelationship(NSEntityDescription const& entity, NSRelationshipDescription const& relationship,
                                     NSPropertyDescription const* source) const {
    if (!source) {
        if (!relationship.isOptional()) refuse(entity, relationship, "it is new and mandatory");
        return;
    }
    auto const* old = source->asRelationship();
    if (!old) refuse(entity, relationship, "it was an attribute and is a relationship");
    if (old->isToMany() && !relationship.isToMany()) refuse(entity, relationship, "it led to many and leads to one");
    if (!relationship.isOptional() && old->isOptional()) refuse(entity, relationship, "it became mandatory");
    // Every record that it may lead to must still be one that it may lead to.
    for (auto const& destination : to_.entities()) {
        auto const* was = sourceOf(*destination);
        if (was && was->isKindOf(old->destinationEntity()) && !destination->isKindOf(relationship.destinationEntity()))
            refuse(entity, relationship,
                   "it may have led to a " + was->name() + ", which is no " + relationship.destinationEntity()->name() + " now");
    }
}

} // namespace Tessarin
