#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include <optional>

namespace Tessarin {

/// What opening a store with another model makes of its records, told before it is done: one line per entity or property that
/// is not what it was.
///
///     if (auto const plan = MigrationPlan::dryRun(file, model, error)) print(plan->description());
///     //  Person: was Human (120 records)
///     //  Person.age: Integer 16 becomes Integer 64
class TESSARIN_API MigrationPlan {
public:
    /// By the models alone: the lines say where the records will decide. Absent with an error, which names entity, property and
    /// reason, where no rule leads from the one to the other for any value.
    static std::optional<MigrationPlan> between(NSManagedObjectModel const& from, NSManagedObjectModel const& to,
                                                Ref<NSError>& error);
    /// By migrating the file in a transaction that is taken back: so it also finds what only the records tell, such as values
    /// that would have to be unique or do not fit. Nothing is changed, but the file's write lock is held meanwhile. Absent with
    /// an error where the migration would be refused, and when the file is no store or cannot be opened now. The error's `count`
    /// says how many records are in the way, `example` is the key of one.
    static std::optional<MigrationPlan> dryRun(NSURL const& file, Ref<NSManagedObjectModel> const& model, Ref<NSError>& error);

    /// Whether opening would migrate. Changes that lines do not tell (indexes, say) count, too.
    bool isNeeded() const noexcept { return isNeeded_; }
    std::vector<std::string> const& lines() const noexcept { return lines_; }
    /// The lines, each with its end; one that says that nothing changes when there are none.
    std::string description() const;

private:
    std::vector<std::string> lines_;
    bool isNeeded_ = false;
};

} // namespace Tessarin
