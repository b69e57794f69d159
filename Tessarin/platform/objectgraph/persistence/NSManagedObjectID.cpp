#include "Tessarin/platform/objectgraph/persistence/NSManagedObjectID.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"

namespace Tessarin {

void NSManagedObjectID::init(Ref<IdentityTable> table, NSEntityDescription const& entity, RecordKey key) {
    table_ = std::move(table);
    entity_ = &entity;
    key_ = key;
}

NSManagedObjectID::~NSManagedObjectID() {
    if (table_) table_->leave(*this);
}

NSURL NSManagedObjectID::URIRepresentation() const { return NSURL::URLWithString(description()).value(); }

std::string NSManagedObjectID::description() const {
    auto const key = recordKey();
    auto const record = key < 0 ? "t" + std::to_string(-key) : "p" + std::to_string(key);
    return "tessarin://" + table_->storeIdentifier() + "/" + entity_->name() + "/" + record;
}

RecordKey recordKeyOf(Value const& value) {
    auto* object = value.object().get();
    if (auto const* id = dynamic_cast<NSManagedObjectID const*>(object)) return id->recordKey();
    if (auto const* identified = dynamic_cast<IdentifiedObject const*>(object)) return identified->recordKey();
    return 0;
}

Ref<NSManagedObjectID> IdentityTable::identity(NSEntityDescription const& entity, RecordKey key) {
    std::lock_guard const hold(mutex_);
    if (auto* present = all_.find(key))
        // One that nobody keeps any more may still be waiting to leave the table: a new one takes its place.
        if (auto kept = std::static_pointer_cast<NSManagedObjectID>(present->weak_from_this().lock())) return kept;
    isUsed_.store(true, std::memory_order_release);
    auto made = make<NSManagedObjectID>(shared_from_this(), entity, key);
    all_.set(key, made.get());
    return made;
}

void IdentityTable::promote(RecordKey temporary, RecordKey permanent) {
    if (!isUsed_.load(std::memory_order_acquire)) return;
    std::lock_guard const hold(mutex_);
    auto* id = all_.set(temporary, nullptr);
    if (!id) return;
    id->key_.store(permanent, std::memory_order_release);
    all_.set(permanent, id);
}

void IdentityTable::leave(NSManagedObjectID& id) {
    std::lock_guard const hold(mutex_);
    auto const key = id.recordKey();
    if (all_.find(key) == &id) all_.set(key, nullptr);
}

std::string IdentityTable::storeIdentifier() const {
    std::lock_guard const hold(mutex_);
    return storeIdentifier_;
}

void IdentityTable::setStoreIdentifier(std::string identifier) {
    std::lock_guard const hold(mutex_);
    storeIdentifier_ = std::move(identifier);
}

} // namespace Tessarin
