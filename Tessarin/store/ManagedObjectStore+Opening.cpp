// How a store is made: settings, names, model, file, contexts.
#include "Tessarin/platform/foundation/bundles/Gestalt.h"
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRescuePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreSalvagePrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/store/ImportGatePrivate.h"
#include "Tessarin/store/ManagedObjectStore.h"

#include <filesystem>

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
        if (auto container = NSFileManager::defaultManager()->containerURLForSecurityApplicationGroupIdentifier(group))
            return *container;
    return NSFileManager::documentsDirectoryURL();
}

Ref<NSManagedObjectModel> withEntities(Ref<NSManagedObjectModel> model) {
    return model && !model->entitiesByName().empty() ? model : nullptr;
}

/// A name becomes a folder and several files, so it must not lead anywhere else.
void requireName(std::string const& name) {
    static constexpr std::size_t longest = 255 - std::string_view(".db-journal").size();
    bool const isName =
        !name.empty() && name != "." && name != ".." && name.find('/') == name.npos && name.find('\0') == name.npos;
    if (!isName || name.size() > longest)
        fatal("a ManagedObjectStore's file name must have 1 to 244 bytes, without \"/\" and NUL, and not be \".\" or \"..\": \"" +
              name + "\"");
}

/// Also makes the store's folder where it is missing: it could not be made before, or not again after the other went aside. What
/// it stands in is not made anew: a mount may be gone meanwhile.
class FolderWaiting : public StoreWaiting {
public:
    using StoreWaiting::init;
    virtual void init(Told told, std::optional<double> timeLimit, std::string folder, mode_t mode) {
        StoreWaiting::init(std::move(told), timeLimit);
        folder_ = std::move(folder);
        mode_ = mode;
    }
    bool pause(Ref<NSError> const& reason) override {
        if (!StoreWaiting::pause(reason)) return false;
        std::error_code none;
        if (!folder_.empty() && std::filesystem::is_directory(std::filesystem::path(folder_).parent_path(), none))
            makeFolders(folder_, mode_);
        return true;
    }

private:
    std::string folder_; // empty: not to be made
    mode_t mode_ = 0;
};

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
    requireName(*name);
    options.options.set(NSMigratePersistentStoresAutomaticallyOption, true);
    options.options.set(NSInferMappingModelAutomaticallyOption, true);
    storeURL_ = baseDirectory().URLByAppendingPathComponent(*name);
    auto const file = storeURL_->URLByAppendingPathComponent(*name + ".db");
    chooseModel(location);
    coordinator_ = make<NSPersistentStoreCoordinator>(model_);
    if (!options.options[NSReadOnlyPersistentStoreOption].boolean()) makeFolders(storeURL_->path(), folderMode(options.fileMode));
    bool const existed =
        NSFileManager::defaultManager()->fileExistsAtURL(file); // decided here, before a replacement can change it
    openStore(file, options);

    privateContext_ = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    privateContext_->setPersistentStoreCoordinator(coordinator_);
    privateContext_->setMergePolicy(make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyStoreTrump));
    privateContext_->setName("Private Context");
    imports_ = std::make_shared<ImportGate>(registry_, privateContext_, options.mostPendingSaves);
    NSObject::init();
    dispatch_now_main([this] { setupMainThreadContext(); });
    addAsObserver(NSManagedObjectContextDidSaveNotification, "contextDidSave:"_sel);
    if (replacement_) tellReplacement();
    if (!existed) didCreateDatabase();
}

void ManagedObjectStore::chooseModel(std::optional<NSURL> const& location) {
    if (location) {
        model_ = withEntities(NSManagedObjectModel::contentsOfURL(*location));
        if (!model_)
            if (auto const bundle = NSBundle::bundleWithURL(*location))
                model_ = withEntities(NSManagedObjectModel::mergedModelFromBundles({{bundle}}));
    }
    if (!model_) model_ = NSManagedObjectModel::mergedModelFromBundles();
    if (!model_) fatal("a ManagedObjectStore found no model: neither at its location nor in the main bundle");
}

void ManagedObjectStore::openStore(NSURL const& file, StoreOptions& options) {
    options.options.set(NSFilePosixPermissions, std::int64_t{options.fileMode});
    bool const isReadOnly = options.options[NSReadOnlyPersistentStoreOption].boolean();
    auto const waiting = make<FolderWaiting>(std::move(options.onWaiting), options.timeLimit,
                                             isReadOnly ? std::string() : storeURL_->path(), folderMode(options.fileMode));
    options.options.set(NSStoreWaitingOption, waiting);
    // No limit unless one is set: what cannot be opened is made anew, and a place that can never hold a store keeps it trying.
    Ref<StoreRefusal> allowed;
    auto wanted = StoreOptions::AfterRefusal::StartEmpty;
    for (bool isFirst = true;; isFirst = false) {
        Ref<NSError> error;
        if (coordinator_->addPersistentStoreWithType(NSSQLiteStoreType, {}, file, options.options, error)) return;
        auto const refusal = waiting->isOver() || isReadOnly ? nullptr : StoreRefusal::of(*error);
        if (refusal) {
            bool const isKnown = refusal->isOfEmptyStore() || (allowed && allowed->identity() == refusal->identity());
            if (options.onRefusal && !isKnown)
                wanted = options.onRefusal(error, refusal->plan() ? &*refusal->plan() : nullptr, refusal->copy());
            allowed = refusal;
            auto const problem = replaceStore(file, error, *refusal, options.fileMode);
            if (!problem && wanted == StoreOptions::AfterRefusal::Salvage) salvageInto(file, options.fileMode);
            if (!problem && isFirst) continue;
            if (problem) error = problem;
        }
        if (!waiting->pause(error)) throw ErrorException(error);
    }
}

/// What keeps it from being done, or null.
Ref<NSError> ManagedObjectStore::replaceStore(NSURL const& file, Ref<NSError> const& error, StoreRefusal const& refusal,
                                              std::uint32_t fileMode) try {
    std::optional<NSURL> copy;
    if (!Tessarin::replaceStore(file.path(), refusal, fileMode, copy)) return nullptr;
    if (!replacement_ || copy)
        replacement_ = StoreReplacement{error, std::move(copy)}; // a copy is not forgotten for an empty store
    return nullptr;
} catch (ErrorException const& failure) {
    return failure.error();
}

void ManagedObjectStore::salvageInto(NSURL const& file, std::uint32_t fileMode) try {
    if (!replacement_ || !replacement_->copy || replacement_->salvaged) return;
    auto const damaged = replacement_->copy->URLByAppendingPathComponent(file.lastPathComponent());
    replacement_->salvaged = salvageStore(damaged.path(), file.path(), model_, fileMode);
    replacement_->salvageError = nullptr;
} catch (ErrorException const& failure) {
    replacement_->salvageError = failure.error();
}

void ManagedObjectStore::tellReplacement() {
    Dictionary details{{"error", replacement_->reason}};
    if (replacement_->copy) details.set("copy", *replacement_->copy);
    NSNotificationCenter::defaultCenter()->postNotificationName(ManagedObjectStoreDidReplaceNotification, self<NSObject>(),
                                                                std::move(details));
}

} // namespace Tessarin
