#include "Tessarin/platform/objectgraph/persistence/stores/NSPersistentStoreCoordinator.h"

#include "Tessarin/platform/objectgraph/persistence/memory/InMemoryStorePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/sqlite/SQLiteStorePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyPromotionsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/SaveDoorPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreSalvagePrivate.h"

#include "Tessarin/platform/queues/Dispatch.h"

#include <algorithm>
#include <charconv>

namespace Tessarin {
namespace {

std::vector<std::string_view> piecesOf(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (;;) {
        auto const at = text.find(separator);
        pieces.push_back(text.substr(0, at));
        if (at == text.npos) return pieces;
        text.remove_prefix(at + 1);
    }
}

} // namespace

NSPersistentStoreCoordinator::NSPersistentStoreCoordinator()
    : promotions_(std::make_unique<KeyPromotions>()), saves_(std::make_unique<SaveDoor>()) {}
NSPersistentStoreCoordinator::~NSPersistentStoreCoordinator() = default;

IdentityTable& NSPersistentStoreCoordinator::identities() noexcept { return space_->identities(); }

void NSPersistentStoreCoordinator::init(Ref<NSManagedObjectModel> managedObjectModel) {
    model_ = std::move(managedObjectModel);
    space_ = std::make_shared<RowSpace>(model_);
}

Ref<NSPersistentStore> NSPersistentStoreCoordinator::addPersistentStoreWithType(std::string_view type, std::optional<std::string>,
                                                                                NSURL const& url, Dictionary const& options,
                                                                                Ref<NSError>& error) {
    error = nullptr;
    if (store()) {
        error = storeError(StoreErrorCode::InvalidStoreType, "This coordinator has its store already.");
        return nullptr;
    }
    if (url.path().find('\0') != std::string::npos) { // SQLite would open what is named before it
        error = storeError(StoreErrorCode::StoreOpen, url.absoluteString() + " names no file: %00 cannot be part of a path.");
        return nullptr;
    }
    Ref<NSPersistentStore> opened;
    if (type == NSSQLiteStoreType)
        opened = SQLiteStore::open(url, space_, options, error);
    else if (type == NSInMemoryStoreType)
        opened = InMemoryStore::open(url, space_);
    else
        error = storeError(StoreErrorCode::InvalidStoreType, "There is no store of type " + std::string{type} + ".");
    if (!opened) return nullptr;
    identities().setStoreIdentifier(opened->identifier());
    kept_ = opened;
    store_.store(opened.get(), std::memory_order_release);
    return opened;
}

std::vector<Ref<NSPersistentStore>> NSPersistentStoreCoordinator::persistentStores() const {
    if (!store()) return {};
    return {kept_};
}

void NSPersistentStoreCoordinator::closeStore() {
    if (!store()) return;
    auto const free = dispatch_semaphore_create(0);
    while (!saves_->shut([free] { dispatch_semaphore_signal(free); })) dispatch_semaphore_wait(free, DISPATCH_TIME_FOREVER);
    isClosed_.store(true, std::memory_order_release);
    kept_->close();
}

std::vector<std::string> NSPersistentStoreCoordinator::verify(Ref<NSError>& error) const {
    error = store() ? nullptr : storeError(StoreErrorCode::ContextWithoutStore, "This coordinator has no store.");
    auto const* inFile = dynamic_cast<SQLiteStore const*>(store()); // another has no file to look at
    return inFile ? inFile->verify(error) : std::vector<std::string>();
}

std::optional<SalvageReport> NSPersistentStoreCoordinator::salvageStoreAtURL(NSURL const& damaged, NSURL const& fresh,
                                                                             Ref<NSError>& error) const {
    error = nullptr;
    try {
        if (damaged.isFileURL() && fresh.isFileURL()) return salvageStore(damaged.path(), fresh.path(), model_);
        error = storeError(StoreErrorCode::StoreOpen, "A store is salvaged from a file into a file.");
    } catch (ErrorException const& failure) {
        error = failure.error();
    }
    return {};
}

Ref<NSManagedObjectID> NSPersistentStoreCoordinator::managedObjectIDForURIRepresentation(NSURL const& uri) {
    auto const text = uri.absoluteString();
    auto const pieces = piecesOf(text, '/'); // "tessarin:", "", STORE, ENTITY, "p42"
    if (!store() || pieces.size() != 5 || pieces[0] != "tessarin:" || pieces[2] != identities().storeIdentifier()) return nullptr;
    auto const& entities = model_->entitiesByName();
    auto entity = entities.find(pieces[3]);
    if (entity == entities.end()) // few names look different in a URI
        entity = std::ranges::find_if(entities, [&](auto const& each) { return entityInURI(each.first) == pieces[3]; });
    if (entity == entities.end() || !pieces[4].starts_with('p')) return nullptr;
    RecordKey key = 0;
    auto const digits = pieces[4].substr(1);
    auto const [stop, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), key);
    if (failure != std::errc{} || stop != digits.data() + digits.size() || key <= 0) return nullptr;
    return identities().identityIfFitting(*entity->second, key, [&] { return entityInStore(key); });
}

/// Null where there is no such record, or where it cannot be read now.
NSEntityDescription const* NSPersistentStoreCoordinator::entityInStore(RecordKey key) const {
    if (auto const row = space_->cache().find(key)) return &row->entity();
    NSEntityDescription const* found = nullptr;
    for (auto const& entity : model_->entities())
        if (!found && entity->rootEntity() == entity.get())
            static_cast<void>(store()->rows(*entity, {&key, 1}, [&](RowRef row) { found = &row->entity(); }));
    return found;
}

RecordKey NSPersistentStoreCoordinator::temporaryKey() noexcept {
    static std::atomic<RecordKey> last{0};
    return last.fetch_sub(1, std::memory_order_relaxed) - 1;
}

} // namespace Tessarin
