#pragma once
#include "Tessarin/platform/objectgraph/persistence/migration/MigrationConditionsPrivate.h"
#include "Tessarin/platform/runtime/Closure.h"

namespace Tessarin {

/// Puts a mapping into words, a line for each entity or property that is not what it was: in the order of the new model, then
/// what goes. Every value and link that the new records do not have is told.
class MigrationTeller {
public:
    using CountOf = Closure<std::int64_t(NSEntityDescription const& old)>; // its records
    /// With `count`, the records are at hand and meet the conditions; without, the lines tell these.
    explicit MigrationTeller(ModelMapping const& mapping, CountOf count = {}) : mapping_(mapping), count_(std::move(count)) {}
    std::vector<std::string> lines() &&;

private:
    void add(std::string const& entity, std::string const& property, std::string const& text);
    void tell(NSEntityDescription const& entity);
    void tell(NSEntityDescription const& entity, NSPropertyDescription const& property);
    void tellNew(NSEntityDescription const& entity, NSPropertyDescription const& property);
    void tellKept(NSEntityDescription const& entity, NSPropertyDescription const& property, NSPropertyDescription const& source);
    void tellInverse(NSRelationshipDescription const& relationship, NSRelationshipDescription const& source);
    void tellGone(NSEntityDescription const& old);
    void tellGone(NSEntityDescription const& entity, NSPropertyDescription const& old);

    NSPropertyDescription const* targetOf(NSEntityDescription const& entity, NSPropertyDescription const& old) const;
    std::string recordsOf(NSEntityDescription const& old) const;  // " (12 records)", or nothing
    std::string onlyIf(std::vector<MigrationCondition> const& conditions, MigrationCondition::Kind kind) const;

    ModelMapping const& mapping_;
    CountOf count_;
    std::vector<std::string> lines_;
};

} // namespace Tessarin
