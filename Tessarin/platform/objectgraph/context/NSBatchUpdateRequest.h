#pragma once
#include "Tessarin/platform/foundation/predicates/NSExpression.h"
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/objectgraph/context/NSBatchResult.h"
#include <map>
#include <string>

namespace Tessarin {

/// Gives all records that fit the same new values, straight in the store, in one transaction and without making objects.
/// `NSManagedObjectContext::executeRequest` runs it. Not synchronised: fill it before it is shared.
///
///     auto request = make<NSBatchUpdateRequest>("Book");
///     request->setPredicate(NSPredicate::predicateWithFormat("year < %d", 1935));
///     request->setPropertiesToUpdate({{"inPrint", false}, {"title", NSExpression::expressionForKeyPath("code")}});
///     auto result = context->executeRequest(*request, error);
///
/// What is done: row versions are raised, so that whoever changed one of the records meanwhile meets a conflict at the next
/// save, and uniqueness constraints hold. Constants are checked against the model before anything is written: their kind,
/// mandatory properties, bounds and patterns. To-many relationships follow the to-one at their other end; in an ordered one the
/// newcomers stand last, by key.
///
/// What is not done: objects' own validation, their hooks and counts of relationships are not asked; what an expression gives
/// is not held against bounds and patterns. Unsaved changes, of any context, play no part. Contexts are not told: see
/// `NSManagedObjectContext::mergeChangesFromRemoteContextSave`, or refresh the objects. A predicate that the store cannot say
/// (always in memory; in SQL, one with an operation of its own) is looked at first, so that a save in between is not seen.
class TESSARIN_API NSBatchUpdateRequest : public NSObject {
public:
    /// By property name: a constant; an NSExpression that is constant, or the name of an attribute of exactly the same type,
    /// whose value before the update is taken; for a to-one relationship an NSManagedObjectID or a saved object. An absent value
    /// empties the property. Anything else, a to-many, a transient property and a one-to-one relationship with an inverse are
    /// refused.
    using PropertiesToUpdate = std::map<std::string, Value>;

    std::string const& entityName() const noexcept { return entityName_; }
    /// Null: every record.
    Ref<NSPredicate> const& predicate() const noexcept { return predicate_; }
    void setPredicate(Ref<NSPredicate> predicate) { predicate_ = std::move(predicate); }
    /// True unless set.
    bool includesSubentities() const noexcept { return includesSubentities_; }
    void setIncludesSubentities(bool includes) noexcept { includesSubentities_ = includes; }
    PropertiesToUpdate const& propertiesToUpdate() const noexcept { return properties_; }
    void setPropertiesToUpdate(PropertiesToUpdate properties) { properties_ = std::move(properties); }
    NSBatchUpdateRequestResultType resultType() const noexcept { return resultType_; }
    void setResultType(NSBatchUpdateRequestResultType type) noexcept { resultType_ = type; }

protected:
    NSBatchUpdateRequest() = default;
    using NSObject::init;
    virtual void init(std::string_view entityName) { entityName_ = entityName; }

private:
    std::string entityName_;
    Ref<NSPredicate> predicate_;
    PropertiesToUpdate properties_;
    bool includesSubentities_ = true;
    NSBatchUpdateRequestResultType resultType_ = NSBatchUpdateRequestResultType::StatusOnly;
};

} // namespace Tessarin
