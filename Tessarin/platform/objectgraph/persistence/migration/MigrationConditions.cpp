#include "Tessarin/platform/objectgraph/persistence/migration/MigrationConditionsPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowLayout.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueConversionPrivate.h"

namespace Tessarin {
namespace {

using Kind = MigrationCondition::Kind;

bool isKeptOtherwise(NSAttributeType before, NSAttributeType now) {
    CellType old{}, cell{};
    return cellTypeOf(before, old) && cellTypeOf(now, cell) && old != cell;
}

class Conditions {
public:
    Conditions(ModelMapping const& mapping, NSEntityDescription const& entity, NSPropertyDescription const& property)
        : mapping_(mapping), entity_(entity), property_(property), source_(mapping.sourceOf(entity, property)) {
        if (source_ && !isStored(*source_)) source_ = nullptr;
    }

    std::vector<MigrationCondition> found() && {
        if (auto const* attribute = property_.asAttribute())
            addFor(*attribute);
        else if (isStored(property_))
            addFor(*property_.asRelationship());
        return std::move(found_);
    }

private:
    void add(Kind kind, std::string reason) { found_.push_back({kind, &entity_, &property_, std::move(reason)}); }

    void addFor(NSAttributeDescription const& attribute) {
        if (attribute.isTransient() || attribute.isDerived()) return; // it was decided that its values go
        auto const* old = source_ ? source_->asAttribute() : nullptr;
        auto const type = attribute.attributeType();
        if (source_ && !old) add(Kind::NoValues, "it was a relationship and is an attribute");
        auto const conversion = old ? conversionBetween(old->attributeType(), type) : ValueConversion::Never;
        if (old && old->attributeType() != type) {
            auto reason = std::string("its type changed from ") + nameOf(old->attributeType()) + " to " + nameOf(type);
            if (conversion == ValueConversion::Never)
                add(Kind::NoValues, std::move(reason));
            else if (conversion == ValueConversion::WhereExact || isKeptOtherwise(old->attributeType(), type))
                add(Kind::ExactValues, std::move(reason));
        }
        if (attribute.isOptional() || !attribute.defaultValue().isAbsent() || !isStored(attribute)) return;
        if (conversion == ValueConversion::Never)
            add(Kind::NoRecords, "it is new and mandatory, and has no default");
        else if (old->isOptional())
            add(Kind::NoAbsence, "it became mandatory and has no default");
    }

    void addFor(NSRelationshipDescription const& relationship) {
        auto const* old = source_ ? source_->asRelationship() : nullptr;
        if (source_ && !old) add(Kind::NoValues, "it was an attribute and is a relationship");
        if (old)
            for (auto const* entity : mapping_.strayedBetween(*old, relationship)) {
                auto const& was = mapping_.sourceOf(*entity)->name();
                add(Kind::KindOfLinks,
                    "it may have led to a " + was + ", which is no " + relationship.destinationEntity()->name() + " now");
                break; // the first stands for all of them
            }
        if (relationship.isToMany()) return; // leading to nobody can be kept, even where a save would not accept it
        if (old && old->isToMany()) add(Kind::SingleLinks, "it led to many and leads to one");
        if (relationship.isOptional()) return;
        if (!old)
            add(Kind::NoAbsence, "it is new and mandatory");
        else if (old->isOptional() || old->isToMany())
            add(Kind::NoAbsence, "it became mandatory");
        else if (mapping_.dropsEntities())
            add(Kind::NoAbsence, "it is mandatory, and what it led to goes");
    }

    ModelMapping const& mapping_;
    NSEntityDescription const& entity_;
    NSPropertyDescription const& property_;
    NSPropertyDescription const* source_; // stored
    std::vector<MigrationCondition> found_;
};

} // namespace

std::vector<MigrationCondition> conditionsOf(ModelMapping const& mapping, NSEntityDescription const& entity,
                                             NSPropertyDescription const& property) {
    return Conditions(mapping, entity, property).found();
}

std::vector<MigrationCondition> conditionsOf(ModelMapping const& mapping) {
    std::vector<MigrationCondition> all;
    for (auto const& entity : mapping.to().entities()) {
        auto const* source = mapping.sourceOf(*entity);
        if (!source) continue;
        if (entity->isAbstract() && !source->isAbstract())
            all.push_back({Kind::NoRecords, entity.get(), nullptr, "it became abstract"});
        for (auto const* property : entity->properties())
            for (auto& condition : conditionsOf(mapping, *entity, *property)) all.push_back(std::move(condition));
    }
    return all;
}

} // namespace Tessarin
