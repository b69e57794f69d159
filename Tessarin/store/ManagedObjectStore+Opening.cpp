// How a store is made: settings, names, model, file, contexts.
#include "Tessarin/platform/foundation/Gestalt.h"
#include "Tessarin/platform/foundation/NSBundle.h"
#include "Tessarin/platform/foundation/NSFileManager.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/store/ManagedObjectStore.h"

namespace Tessarin {
namespace {

/// The settings of the class, for the life of the process.
struct Settings {
    Cell<std::optional<NSURL>> modelURL;
    Cell<std::optional<std::string>> filename;
    Cell<std::string> groupIdentifier;
    Cell<std::optional<NSURL>> storeDirectoryURL;
};

Settings& settings() {
    static auto* const shared = new Settings;
    return *shared;
}

NSURL baseDirectory() {
    auto const group = ManagedObjectStore::groupIdentifier();
    if (!group.empty())
        if (auto container = NSFileManager::defaultManager()->containerURLForSecurityApplicationGroupIdentifier(group)) return *container;
    return NSFileManager::documentsDirectoryURL();
}

Ref<NSManagedObjectModel> withEntities(Ref<NSManagedObjectModel> model) { return model && !model->entitiesByName().empty() ? model : nullptr; }

/// False when it could not be done, which no caller makes more of.
bool tryTo(FunctionRef<void()> work) {
    try {
        work();
        return true;
    } catch (ErrorException const&) {
        return false;
    }
}

} // namespace

std::optional<NSURL> ManagedObjectStore::Type::generatedModelURL() const { return {}; }
void ManagedObjectStore::Type::preload() {}
void ManagedObjectStore::Type::setAppGroupIdentifier(std::string identifier, std::optional<std::string> filename) {
    setGroupIdentifier(std::move(identifier));
    if (filename) setFilename(std::move(filename));
}
ManagedObjectStore::Type& ManagedObjectStore::type() {
    static auto* const shared = new Type;
    return *shared;
}

std::optional<NSURL> ManagedObjectStore::modelURL() { return settings().modelURL.get(); }
void ManagedObjectStore::setModelURL(std::optional<NSURL> url) { settings().modelURL.set(std::move(url)); }
std::optional<std::string> ManagedObjectStore::filename() { return settings().filename.get(); }
void ManagedObjectStore::setFilename(std::optional<std::string> filename) { settings().filename.set(std::move(filename)); }
std::string ManagedObjectStore::groupIdentifier() { return settings().groupIdentifier.get(); }
void ManagedObjectStore::setGroupIdentifier(std::string identifier) { settings().groupIdentifier.set(std::move(identifier)); }
std::optional<NSURL> ManagedObjectStore::storeDirectoryURL() { return settings().storeDirectoryURL.get(); }
void ManagedObjectStore::setStoreDirectoryURL(std::optional<NSURL> url) { settings().storeDirectoryURL.set(std::move(url)); }
std::optional<std::string> ManagedObjectStore::modelName() { return {}; }

void ManagedObjectStore::init() { fatal("use of unimplemented initializer 'init()' for class 'Tessarin.ManagedObjectStore'"); }

void ManagedObjectStore::init(StoreOptions options) {
    dispatch_ = make<Dispatcher>(QualityOfService{17});
    registry_ = dispatch_queue_create("ManagedObjectStore registry", DISPATCH_QUEUE_SERIAL);
    dispatch_set_target_queue(registry_, dispatch_->queue());
    saveDispatchGroup_ = dispatch_group_create();
    auto const location = options.modelURL ? options.modelURL : modelURL();
    auto name = options.filename ? options.filename : filename();
    if (!name) fatal("a ManagedObjectStore needs a file name: its own, or the class's");
    if (Gestalt::isRunningUnitTests()) name = "UnitTest-" + *name; // tests never touch the application's own data
    options.options.set(NSMigratePersistentStoresAutomaticallyOption, true);
    options.options.set(NSInferMappingModelAutomaticallyOption, true);
    storeURL_ = baseDirectory().URLByAppendingPathComponent(*name);
    auto const file = storeURL_->URLByAppendingPathComponent(*name + ".db");
    chooseModel(location);
    coordinator_ = make<NSPersistentStoreCoordinator>(model_);
    auto const& files = *NSFileManager::defaultManager();
    tryTo([&] { files.createDirectoryAtURL(*storeURL_); });
    bool const existed = files.fileExistsAtURL(file); // decided here, before a wipe can change it
    openStore(file, options.options);

    privateContext_ = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    privateContext_->setPersistentStoreCoordinator(coordinator_);
    privateContext_->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyStoreTrump));
    privateContext_->setName("Private Context");
    NSObject::init();
    dispatch_now_main([this] { setupMainThreadContext(); });
    addAsObserver(NSManagedObjectContextDidSaveNotification, "contextDidSave:"_sel);
    if (!existed) didCreateDatabase();
}

void ManagedObjectStore::chooseModel(std::optional<NSURL> const& location) {
    if (location) {
        model_ = withEntities(NSManagedObjectModel::contentsOfURL(*location));
        if (!model_)
            if (auto const bundle = NSBundle::bundleWithURL(*location)) model_ = withEntities(NSManagedObjectModel::mergedModelFromBundles({{bundle}}));
    }
    if (!model_) model_ = NSManagedObjectModel::mergedModelFromBundles();
    if (!model_) fatal("a ManagedObjectStore found no model: neither at its location nor in the main bundle");
}

void ManagedObjectStore::openStore(NSURL const& file, Dictionary const& options) {
    auto const& files = *NSFileManager::defaultManager();
    // No limit and no delay: what cannot be opened is made anew, and a place that can never hold a store keeps it trying.
    Ref<NSError> error;
    while (!coordinator_->addPersistentStoreWithType(NSSQLiteStoreType, {}, file, options, error))
        if (tryTo([&] { files.removeItemAtURL(*storeURL_); })) tryTo([&] { files.createDirectoryAtURL(*storeURL_); });
}

} // namespace Tessarin
