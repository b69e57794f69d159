#include "Tessarin/platform/objectgraph/persistence/migration/MigrationTellerPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ValueConversionPrivate.h"

#include <algorithm>
#include <fmt/format.h>

namespace Tessarin {
namespace {

using Kind = MigrationCondition::Kind;

std::string kindOf(NSPropertyDescription const& property) {
    if (auto const* attribute = property.asAttribute()) return nameOf(attribute->attributeType());
    auto const& relationship = *property.asRelationship();
    return fmt::format("{}to-{} {}", relationship.isOrdered() ? "ordered " : "", relationship.isToMany() ? "many" : "one",
                       relationship.destinationEntity()->name());
}

std::string fullName(NSPropertyDescription const& property) { return property.entity()->name() + "." + property.name(); }
std::string parentOf(NSEntityDescription const& entity) { return entity.superentity() ? entity.superentity()->name() : "nobody"; }

} // namespace

std::vector<std::string> MigrationTeller::lines() && {
    for (auto const& entity : mapping_.to().entities()) tell(*entity);
    for (auto const& entity : mapping_.from().entities()) tellGone(*entity);
    return std::move(lines_);
}

void MigrationTeller::add(std::string const& entity, std::string const& property, std::string const& text) {
    lines_.push_back(entity + (property.empty() ? "" : ".") + property + ": " + text);
}

std::string MigrationTeller::recordsOf(NSEntityDescription const& old) const {
    if (!count_) return {};
    auto const count = count_(old);
    return fmt::format(" ({} record{})", count, count == 1 ? "" : "s");
}

NSPropertyDescription const* MigrationTeller::targetOf(NSEntityDescription const& entity,
                                                       NSPropertyDescription const& old) const {
    for (auto const* property : entity.properties())
        if (mapping_.sourceOf(entity, *property) == &old) return property;
    return nullptr;
}

std::string MigrationTeller::onlyIf(std::vector<MigrationCondition> const& conditions, Kind kind) const {
    if (count_ || std::ranges::find(conditions, kind, &MigrationCondition::kind) == conditions.end()) return {};
    switch (kind) {
    case Kind::ExactValues: return ", where every value fits";
    case Kind::NoAbsence: return ", where every record has one";
    case Kind::SingleLinks: return ", where none leads to several";
    case Kind::KindOfLinks: return ", where it leads to no other";
    default: return {};
    }
}

void MigrationTeller::tell(NSEntityDescription const& entity) {
    auto const* source = mapping_.sourceOf(entity);
    if (!source) {
        std::string text = "new";
        for (auto const& old : mapping_.from().entities())
            if (auto const* now = mapping_.targetOf(*old);
                now && (old->name() == entity.name() || old->name() == entity.renamingIdentifier()))
                text += ", for " + old->name() + " is " + now->name() + " now";
        return add(entity.name(), "", text);
    }
    if (source->name() != entity.name()) add(entity.name(), "", "was " + source->name() + recordsOf(*source));
    if (entity.isAbstract() && !source->isAbstract())
        add(entity.name(), "", std::string("becomes abstract") + (count_ ? "" : ", where it has no records of its own"));
    auto const* parent = entity.superentity();
    auto const* oldParent = parent ? mapping_.sourceOf(*parent) : nullptr;
    if (oldParent != source->superentity())
        add(entity.name(), "", fmt::format("inherited from {}, inherits from {}", parentOf(*source), parentOf(entity)));
    // What is inherited, and was, is told with the parent.
    auto const isOfParent = [](NSPropertyDescription const& property, NSEntityDescription const* of) {
        return of && of->isKindOf(property.entity());
    };
    for (auto const* property : entity.properties())
        if (!isOfParent(*property, parent) || mapping_.sourceOf(*parent, *property) != mapping_.sourceOf(entity, *property))
            tell(entity, *property);
    for (auto const* old : source->properties())
        if (!targetOf(entity, *old) && (!isOfParent(*old, oldParent) || targetOf(*parent, *old))) tellGone(entity, *old);
}

void MigrationTeller::tell(NSEntityDescription const& entity, NSPropertyDescription const& property) {
    auto const* source = mapping_.sourceOf(entity, property);
    if (source && !isStored(*source)) source = nullptr;
    if (!isStored(property)) {
        if (source) add(entity.name(), property.name(), "is not stored any more: its values go");
    } else if (source) {
        tellKept(entity, property, *source);
    } else {
        tellNew(entity, property);
    }
}

void MigrationTeller::tellNew(NSEntityDescription const& entity, NSPropertyDescription const& property) {
    std::string text = "new";
    auto const* attribute = property.asAttribute();
    auto const* inverse = attribute ? nullptr : storedInverseOf(*property.asRelationship());
    if (attribute && !attribute->defaultValue().isAbsent())
        text += ", " + attribute->defaultValue().description() + " in every record";
    if (inverse && inverse != &property && !mapping_.sourcesOf(*inverse).empty())
        text += ", with the links of " + fullName(*inverse);
    for (auto const* old : mapping_.sourceOf(entity)->properties())
        if (old->name() == property.name() || old->name() == property.renamingIdentifier())
            if (auto const* now = targetOf(entity, *old); now && now != &property)
                text += ", for " + old->name() + " is " + now->name() + " now";
    add(entity.name(), property.name(), text);
}

void MigrationTeller::tellKept(NSEntityDescription const& entity, NSPropertyDescription const& property,
                               NSPropertyDescription const& source) {
    auto const conditions = conditionsOf(mapping_, entity, property);
    auto const* attribute = property.asAttribute();
    auto const *was = source.asRelationship(), *is = property.asRelationship();
    if (source.name() != property.name()) add(entity.name(), property.name(), "was " + source.name());
    bool const leadsAsBefore = was && is && was->isToMany() == is->isToMany() && was->isOrdered() == is->isOrdered() &&
                               mapping_.sourceOf(*is->destinationEntity()) == was->destinationEntity();
    if (auto const before = kindOf(source), now = kindOf(property); before != now && !leadsAsBefore)
        add(entity.name(), property.name(),
            before + " becomes " + now + onlyIf(conditions, Kind::ExactValues) + onlyIf(conditions, Kind::SingleLinks) +
                onlyIf(conditions, Kind::KindOfLinks));
    if (was && is && property.entity() == &entity) tellInverse(*is, *was);
    if (source.isOptional() == property.isOptional()) return;
    if (property.isOptional()) return add(entity.name(), property.name(), "need not have a value any more");
    bool const hasDefault = attribute && !attribute->defaultValue().isAbsent();
    add(entity.name(), property.name(),
        "must have a value" + (hasDefault ? ", its default where it has none" : onlyIf(conditions, Kind::NoAbsence)));
}

void MigrationTeller::tellInverse(NSRelationshipDescription const& relationship, NSRelationshipDescription const& source) {
    auto const *before = storedInverseOf(source), *now = storedInverseOf(relationship);
    if (before && !now) return add(relationship.entity()->name(), relationship.name(), "has no inverse any more");
    auto const sources = now ? mapping_.sourcesOf(*now) : std::vector<NSRelationshipDescription const*>();
    if (sources.empty() || std::ranges::find(sources, before) != sources.end()) return; // none, the same, or told where it is new
    if (fullName(*now) < fullName(relationship) && now->isToMany() == relationship.isToMany()) return; // told there
    if (relationship.isToMany() && !now->isToMany()) return;
    add(relationship.entity()->name(), relationship.name(),
        now == &relationship ? "is its own inverse now, with the links of both directions"
                             : "is the inverse of " + fullName(*now) + " now, each with the links of both");
}

void MigrationTeller::tellGone(NSEntityDescription const& old) {
    if (!mapping_.targetOf(old)) add(old.name(), "", "goes with its records" + recordsOf(old));
}

void MigrationTeller::tellGone(NSEntityDescription const& entity, NSPropertyDescription const& old) {
    if (!isStored(old)) return;
    auto const* inverse = old.asRelationship() ? storedInverseOf(*old.asRelationship()) : nullptr;
    auto const* other = inverse && inverse != &old ? mapping_.targetOf(*inverse->entity()) : nullptr;
    auto const* rest = other ? targetOf(*other, *inverse) : nullptr;
    add(entity.name(), old.name(),
        rest && isStored(*rest) ? "goes, its links stay in " + fullName(*rest) : "goes with its values");
}

} // namespace Tessarin
