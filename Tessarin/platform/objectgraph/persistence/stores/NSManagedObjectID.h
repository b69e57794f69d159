#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTable.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include <atomic>
#include <mutex>

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

/// The key of the record that a value (a managed object or an identity) stands for in that coordinator, or 0.
TESSARIN_API RecordKey recordKeyOf(Value const& value, IdentityTable const& table);

/// All identities of one coordinator that anybody keeps. Any thread.
class TESSARIN_API IdentityTable : public std::enable_shared_from_this<IdentityTable> {
public:
    explicit IdentityTable(Ref<NSManagedObjectModel> model) : model_(std::move(model)) {}

    /// `entity` is what is known of the record: its own, or an ancestor of that.
    Ref<NSManagedObjectID> identity(NSEntityDescription const& entity, RecordKey key);
    /// The same for an entity that somebody only says; null when it does not fit. `known` gives the record's own, null if unknown.
    Ref<NSManagedObjectID> identityIfFitting(NSEntityDescription const& entity, RecordKey key,
                                             FunctionRef<NSEntityDescription const*()> known);
    /// A record that had a temporary key has its permanent one from now on.
    void promote(RecordKey temporary, RecordKey permanent);
    /// The store's own identity, for URIs; empty until there is a store.
    std::string storeIdentifier() const;
    void setStoreIdentifier(std::string identifier);

private:
    friend class NSManagedObjectID;
    void leave(NSManagedObjectID& id);
    Ref<NSManagedObjectID> living(RecordKey key) const;

    Ref<NSManagedObjectModel> const model_; // identities point to its entities
    std::atomic<bool> isUsed_{false}; // most records never have an identity: promoting them takes no lock then
    mutable std::mutex mutex_;
    KeyTable<NSManagedObjectID> all_; // guarded by mutex_, like what follows
    std::string storeIdentifier_;
};

} // namespace Tessarin
