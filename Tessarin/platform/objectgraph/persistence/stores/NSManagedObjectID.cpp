#include "Tessarin/platform/objectgraph/persistence/stores/NSManagedObjectID.h"

#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/stores/IdentityTablePrivate.h"

#include <fmt/format.h>
#include <mutex>

namespace Tessarin {

void NSManagedObjectID::init(Ref<IdentityTable> table, NSEntityDescription const& entity, RecordKey key) {
    table_ = std::move(table);
    entity_ = &entity;
    key_ = key;
}

NSManagedObjectID::~NSManagedObjectID() {
    if (table_) table_->leave(*this);
}

std::string entityInURI(std::string_view name) {
    std::string text;
    for (char const c : name) {
        bool const isPlain =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
        isPlain ? text += c : text += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return text;
}

NSURL NSManagedObjectID::URIRepresentation() const {
    auto const& name = entity().name();
    auto text = description();
    text.replace(text.rfind('/') - name.size(), name.size(), entityInURI(name));
    return NSURL::URLWithString(text).value();
}

std::string NSManagedObjectID::description() const {
    auto const key = recordKey();
    auto const record = key < 0 ? "t" + std::to_string(-key) : "p" + std::to_string(key);
    return "tessarin://" + table_->storeIdentifier() + "/" + entity().name() + "/" + record;
}

RecordKey recordKeyOf(Value const& value, IdentityTable const& table) {
    auto* object = value.object().get();
    if (auto const* id = dynamic_cast<NSManagedObjectID const*>(object)) return id->isIn(table) ? id->recordKey() : 0;
    auto const* identified = dynamic_cast<IdentifiedObject const*>(object);
    if (!identified || &identified->identityTable() != &table) return 0;
    if (identified->recordKey() >= 0) return identified->recordKey();
    auto const* id = dynamic_cast<NSManagedObjectID const*>(&object->predicateIdentity()); // knows who else has saved the record
    return id ? id->recordKey() : identified->recordKey();
}

/// One that nobody keeps any more may still be waiting to leave the table: it is not given out again.
Ref<NSManagedObjectID> IdentityTable::living(RecordKey key) const {
    auto* present = all_.find(key);
    return present ? std::static_pointer_cast<NSManagedObjectID>(present->weak_from_this().lock()) : nullptr;
}

Ref<NSManagedObjectID> IdentityTable::identity(NSEntityDescription const& entity, RecordKey key) {
    std::lock_guard const hold(mutex_);
    auto const kept = living(key);
    if (kept && entity.isKindOf(&kept->entity()))
        kept->entity_.store(&entity, std::memory_order_release); // now it is known better
    // Somebody's word for a record that was not there to be asked may have been wrong: that identity stays one of no record.
    if (kept && kept->entity().isKindOf(&entity)) return kept;
    isUsed_.store(true, std::memory_order_release);
    auto made = make<NSManagedObjectID>(shared_from_this(), entity, key);
    all_.set(key, made.get());
    return made;
}

Ref<NSManagedObjectID> IdentityTable::identityIfFitting(NSEntityDescription const& entity, RecordKey key,
                                                        FunctionRef<NSEntityDescription const*()> known) {
    Ref<NSManagedObjectID> kept;
    {
        std::lock_guard const hold(mutex_);
        kept = living(key);
    }
    if (kept) return kept->entity().isKindOf(&entity) ? kept : nullptr;
    auto const* own = known();
    if (!own) own = &entity;
    return own->isKindOf(&entity) ? identity(*own, key) : nullptr;
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
