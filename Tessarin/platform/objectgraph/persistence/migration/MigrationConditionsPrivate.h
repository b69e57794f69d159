#pragma once
#include "Tessarin/platform/objectgraph/persistence/migration/ModelMappingPrivate.h"
#include <string>

namespace Tessarin {

/// What the records must be like for a migration to keep all that they hold. One that a model breaks in itself is broken by the
/// first record; where there is none, none is.
struct MigrationCondition {
    enum class Kind {
        NoRecords,   // of the entity
        NoValues,    // in the old property, nor links: nothing leads from what it was to what it is
        ExactValues, // the old property's are numbers of the new type, too
        NoAbsence,   // the new property has a value in every record, after the migration
        SingleLinks, // the new property leads to one record at most
        KindOfLinks, // the new property leads only to what it may lead to
    };
    Kind kind;
    NSEntityDescription const* entity; // of the new model
    NSPropertyDescription const* property; // of the new model; null where it is about the entity
    std::string reason; // what has changed, as an error says it
};

/// By the order of the new model. Links that two relationships share from now on have conditions of their own, which only
/// the links themselves tell.
std::vector<MigrationCondition> conditionsOf(ModelMapping const& mapping);
/// Those for the records of one entity and what they have in one property.
std::vector<MigrationCondition> conditionsOf(ModelMapping const& mapping, NSEntityDescription const& entity,
                                             NSPropertyDescription const& property);

} // namespace Tessarin
