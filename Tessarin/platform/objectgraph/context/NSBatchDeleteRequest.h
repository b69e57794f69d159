#pragma once
#include "Tessarin/platform/objectgraph/context/NSBatchResult.h"
#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"

namespace Tessarin {

/// Deletes records straight in the store, in one transaction and without making objects. `NSManagedObjectContext::executeRequest`
/// runs it. Not synchronised: fill it before it is shared.
///
///     auto old = make<NSFetchRequest>("Book");
///     old->setPredicate(NSPredicate::predicateWithFormat("year < %d", 1935));
///     auto result = context->executeRequest(*make<NSBatchDeleteRequest>(old), error);
///
/// No link to a deleted record is left: it leaves every to-many relationship, and a to-one that led to it is emptied, also a
/// mandatory one, and that record's version is raised. Delete rules are not followed: nothing is cascaded, nothing denied.
/// Validation and the objects' hooks are not asked. Unsaved changes, of any context, play no part; a context that has changed a
/// deleted record meets a conflict at its save. Contexts are not told: see
/// `NSManagedObjectContext::mergeChangesFromRemoteContextSave`. A predicate or order that the store cannot say is looked at
/// first, so that a save in between is not seen.
class TESSARIN_API NSBatchDeleteRequest : public NSObject {
public:
    /// What to delete; null when it was made from identities.
    Ref<NSFetchRequest> const& fetchRequest() const noexcept { return fetchRequest_; }
    /// Identities of unsaved or missing records are ignored; they may be of several entities.
    std::vector<Ref<NSManagedObjectID>> const& objectIDs() const noexcept { return objectIDs_; }
    NSBatchDeleteRequestResultType resultType() const noexcept { return resultType_; }
    void setResultType(NSBatchDeleteRequestResultType type) noexcept { resultType_ = type; }

protected:
    NSBatchDeleteRequest() = default;
    using NSObject::init;
    /// Entity, predicate, order, limit, offset and sub-entities of the request count.
    virtual void init(Ref<NSFetchRequest> fetchRequest) { fetchRequest_ = std::move(fetchRequest); }
    virtual void init(std::vector<Ref<NSManagedObjectID>> objectIDs) { objectIDs_ = std::move(objectIDs); }

private:
    Ref<NSFetchRequest> fetchRequest_;
    std::vector<Ref<NSManagedObjectID>> objectIDs_;
    NSBatchDeleteRequestResultType resultType_ = NSBatchDeleteRequestResultType::StatusOnly;
};

} // namespace Tessarin
