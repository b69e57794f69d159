#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSManagedObjectID.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace Tessarin {

class NSManagedObjectModel;

/// The key of the record that a value (a managed object or an identity) stands for in that coordinator, or 0.
TESSARIN_API RecordKey recordKeyOf(Value const& value, IdentityTable const& table);

/// The name of an entity as it stands in the URI of an identity.
std::string entityInURI(std::string_view name);

/// All identities of one coordinator that anybody keeps. Any thread.
class TESSARIN_API IdentityTable : public std::enable_shared_from_this<IdentityTable> {
public:
    explicit IdentityTable(Ref<NSManagedObjectModel> model) : model_(std::move(model)) {}

    /// `entity` is what is known of the record: its own, or an ancestor of that.
    Ref<NSManagedObjectID> identity(NSEntityDescription const& entity, RecordKey key);
    /// The same for an entity that somebody only says; null when it does not fit. `known` gives the record's own, null if
    /// unknown.
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
