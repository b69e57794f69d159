#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <atomic>

namespace Tessarin {

class IdentityTable;

/// The identity of a record: one object per record and coordinator, so that two of them are the same record exactly when
/// they are the same object. Temporary until the record's first save at any level, then permanent. Any thread.
class TESSARIN_API NSManagedObjectID : public NSObject {
public:
    /// The record's own entity; as long as nobody has read the record perhaps an ancestor of it.
    NSEntityDescription const& entity() const noexcept { return *entity_.load(std::memory_order_acquire); }
    bool isTemporaryID() const noexcept { return recordKey() < 0; }
    /// "tessarin://STORE/ENTITY/p42": survives restarts of the program once the identity is permanent.
    NSURL URIRepresentation() const;
    std::string description() const override;
    RecordKey recordKey() const noexcept { return key_.load(std::memory_order_acquire); }
    /// Whether it is of the coordinator that this table is of: keys of another one name other records.
    bool isIn(IdentityTable const& table) const noexcept { return table_.get() == &table; }

protected:
    NSManagedObjectID() = default;
    using NSObject::init;
    void init(Ref<IdentityTable> table, NSEntityDescription const& entity, RecordKey key);
    ~NSManagedObjectID() override;

private:
    friend class IdentityTable;
    template <class T> friend struct detail::Made;
    Ref<IdentityTable> table_;
    std::atomic<NSEntityDescription const*> entity_{nullptr};
    std::atomic<RecordKey> key_{0};
};

/// What has an identity: managed objects, and whatever else may stand for a record in a predicate.
class TESSARIN_API IdentifiedObject : public NSObject {
public:
    virtual RecordKey recordKey() const = 0;
    /// Of its coordinator.
    virtual IdentityTable const& identityTable() const = 0;
};

} // namespace Tessarin
