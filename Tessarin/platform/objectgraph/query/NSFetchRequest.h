#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSSortDescriptor.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

/// Which objects a context shall find, in what order, and how many. Not synchronised: fill it before it is shared.
///
///     auto request = make<NSFetchRequest>("Book");
///     request->setPredicate(NSPredicate::predicateWithFormat("year > %d", 1900));
///     request->setFetchLimit(10);
class TESSARIN_API NSFetchRequest : public NSObject {
public:
    std::string const& entityName() const noexcept { return entityName_; }

    /// Null: every object.
    Ref<NSPredicate> const& predicate() const noexcept { return predicate_; }
    void setPredicate(Ref<NSPredicate> predicate) { predicate_ = std::move(predicate); }
    /// Empty: in the order of their keys, which is that of their first save.
    std::vector<Ref<NSSortDescriptor>> const& sortDescriptors() const noexcept { return sortDescriptors_; }
    void setSortDescriptors(std::vector<Ref<NSSortDescriptor>> descriptors) { sortDescriptors_ = std::move(descriptors); }
    /// 0: no limit.
    std::size_t fetchLimit() const noexcept { return fetchLimit_; }
    void setFetchLimit(std::size_t limit) noexcept { fetchLimit_ = limit; }
    /// How many of the first results are left out.
    std::size_t fetchOffset() const noexcept { return fetchOffset_; }
    void setFetchOffset(std::size_t offset) noexcept { fetchOffset_ = offset; }
    /// Whether objects of sub-entities are found, too; true unless set.
    bool includesSubentities() const noexcept { return includesSubentities_; }
    void setIncludesSubentities(bool includes) noexcept { includesSubentities_ = includes; }
    /// Whether results count as faults until their values are asked for; true unless set. Their values are read either way.
    bool returnsObjectsAsFaults() const noexcept { return returnsObjectsAsFaults_; }
    void setReturnsObjectsAsFaults(bool returns) noexcept { returnsObjectsAsFaults_ = returns; }

    /// How many objects `fetchObjects` makes at a time; 0, all. A plain list of results has all of them anyway.
    std::size_t fetchBatchSize() const noexcept { return fetchBatchSize_; }
    void setFetchBatchSize(std::size_t size) noexcept { fetchBatchSize_ = size; }
    /// Whether unsaved changes of the context and its ancestors count; true unless set. Without, the result is what the store
    /// holds; objects that are in memory still show their unsaved values.
    bool includesPendingChanges() const noexcept { return includesPendingChanges_; }
    void setIncludesPendingChanges(bool includes) noexcept { includesPendingChanges_ = includes; }
    /// Relationships that are read with the results, for all of them at once; key paths lead on from there ("author.publisher").
    std::vector<std::string> const& relationshipKeyPathsForPrefetching() const noexcept { return prefetched_; }
    void setRelationshipKeyPathsForPrefetching(std::vector<std::string> keyPaths) { prefetched_ = std::move(keyPaths); }

    std::string description() const override;

protected:
    NSFetchRequest() = default;
    using NSObject::init;
    virtual void init(std::string_view entityName) { entityName_ = entityName; }

private:
    std::string entityName_;
    Ref<NSPredicate> predicate_;
    std::vector<Ref<NSSortDescriptor>> sortDescriptors_;
    std::size_t fetchLimit_ = 0;
    std::size_t fetchOffset_ = 0;
    bool includesSubentities_ = true;
    std::size_t fetchBatchSize_ = 0;
    std::vector<std::string> prefetched_;
    bool returnsObjectsAsFaults_ = true;
    bool includesPendingChanges_ = true;
};

} // namespace Tessarin
