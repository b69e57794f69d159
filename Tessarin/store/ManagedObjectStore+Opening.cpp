// How a store is made: name, place, model, file, contexts.
#include "Tessarin/platform/foundation/bundles/Gestalt.h"
#include "Tessarin/platform/foundation/bundles/NSBundle.h"
#include "Tessarin/platform/foundation/files/NSFileManager.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRescuePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreSalvagePrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"
#include "Tessarin/store/ImportGatePrivate.h"
#include "Tessarin/store/ManagedObjectStore.h"

#include <cerrno>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>

namespace Tessarin {
namespace {

NSURL baseDirectory(StoreOptions const& options) {
    if (options.directory) return *options.directory;
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

/// A store in memory needs none, and has an empty one then.
std::string requiredName(StoreOptions const& options) {
    auto name = options.filename ? options.filename : ManagedObjectStore::filename();
    if (!name && options.inMemory) return {};
    if (!name) fatal("a ManagedObjectStore needs a file name: its own, or the class's");
    if (Gestalt::isRunningUnitTests()) name = "UnitTest-" + *name; // tests never touch the application's own data
    requireName(*name);
    return *name;
}

/// What nobody can mean.
void requireSense(StoreOptions const& options) {
    if (options.directory && !options.directory->isFileURL())
        fatal("a ManagedObjectStore's directory must be a folder of the file system: " + options.directory->absoluteString());
    if (options.inMemory && options.readOnly) fatal("a ManagedObjectStore in memory begins empty: it cannot be read only");
}

/// Runs `work`; what it throws becomes the error.
template <class Work> Ref<NSError> caught(Work work) {
    try {
        work();
    } catch (ErrorException const& failure) {
        return failure.error();
    } catch (std::bad_alloc const&) {
        return NSError::errorWithErrno(ENOMEM);
    } catch (std::exception const& failure) { // of a closure in the options
        return storeError(StoreErrorCode::StoreOpen, std::string("The store was not opened: ") + failure.what());
    }
    return nullptr;
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

void ManagedObjectStore::init() { fatal("use of unimplemented initializer 'init()' for class 'Tessarin.ManagedObjectStore'"); }

void ManagedObjectStore::init(StoreOptions options) {
    dispatch_ = make<Dispatcher>(QualityOfService{17});
    registry_ = dispatch_queue_create("ManagedObjectStore registry", DISPATCH_QUEUE_SERIAL);
    dispatch_set_target_queue(registry_, dispatch_->queue());
    saveDispatchGroup_ = dispatch_group_create();
    requireSense(options);
    mergePolicy_ = options.mergePolicy;
    auto const name = requiredName(options);
    storeURL_ = options.inMemory ? *NSURL::URLWithString("memory:") : baseDirectory(options).URLByAppendingPathComponent(name);
    chooseModel(options);
    coordinator_ = make<NSPersistentStoreCoordinator>(model_);
    bool const existed =
        options.inMemory ? openInMemory() : openFile(storeURL_->URLByAppendingPathComponent(name + ".db"), options);

    privateContext_ = make<NSManagedObjectContext>(NSManagedObjectContextConcurrencyType::PrivateQueue);
    privateContext_->setPersistentStoreCoordinator(coordinator_);
    privateContext_->setMergePolicy(mergePolicyOfALevel());
    privateContext_->setName("Private Context");
    imports_ = std::make_shared<ImportGate>(registry_, privateContext_, options.mostPendingSaves);
    NSObject::init();
    dispatch_now_main([this] { setupMainThreadContext(); });
    addAsObserver(NSManagedObjectContextDidSaveNotification, "contextDidSave:"_sel);
    if (replacement_) tellReplacement();
    if (!existed) didCreateDatabase();
}

Ref<StoreOpening> ManagedObjectStore::openWith(StoreOptions options, Ref<ManagedObjectStore> (*make)(StoreOptions),
                                               OpenCompletion<ManagedObjectStore> completion) {
    requireSense(options);
    static_cast<void>(requiredName(options));
    StoreOpening::Told told;
    if (options.onProgress)
        told = [kept = std::make_shared<StoreOpening::Told>(std::move(options.onProgress))](StoreProgress const& progress) {
            Dispatcher::main()->async([kept, progress] { (*kept)(progress); });
        };
    options.onProgress = nullptr;
    auto opening = Tessarin::make<StoreOpening>(std::move(told));
    options.options.set(NSStoreOpeningOption, opening);
    Dispatcher::userInitiated()->async(
        [options = std::move(options), make, opening, completion = std::move(completion)]() mutable {
            Ref<ManagedObjectStore> store;
            auto error = caught([&] { store = make(std::move(options)); });
            opening->end();
            Dispatcher::main()->async([store = std::move(store), error = std::move(error), completion = std::move(completion)] {
                if (completion) completion(store, error);
            });
        });
    return opening;
}

Ref<NSMergePolicy> ManagedObjectStore::mergePolicyOfALevel() const {
    return mergePolicy_ ? mergePolicy_ : make<NSMergePolicy>(NSMergePolicyType::MergeByPropertyStoreTrump);
}

void ManagedObjectStore::chooseModel(StoreOptions const& options) {
    model_ = options.model;
    auto const location = options.modelURL ? options.modelURL : modelURL();
    if (!model_ && location) {
        model_ = withEntities(NSManagedObjectModel::contentsOfURL(*location));
        if (!model_)
            if (auto const bundle = NSBundle::bundleWithURL(*location))
                model_ = withEntities(NSManagedObjectModel::mergedModelFromBundles({{bundle}}));
    }
    if (!model_) model_ = NSManagedObjectModel::mergedModelFromBundles();
    if (!model_) fatal("a ManagedObjectStore found no model: neither at its location nor in the main bundle");
}

bool ManagedObjectStore::openInMemory() {
    Ref<NSError> error;
    if (!coordinator_->addPersistentStoreWithType(NSInMemoryStoreType, {}, *storeURL_, {}, error)) throw ErrorException(error);
    return false;
}

bool ManagedObjectStore::openFile(NSURL const& file, StoreOptions& options) {
    options.options.set(NSMigratePersistentStoresAutomaticallyOption, true);
    options.options.set(NSInferMappingModelAutomaticallyOption, true);
    options.options.set(NSStoreHistoryOption, options.keepsHistory);
    options.options.set(NSStoreMergesOthersOption, options.mergesOtherProcesses);
    if (options.historyAge) options.options.set(NSStoreHistoryAgeOption, *options.historyAge);
    if (options.readOnly) options.options.set(NSReadOnlyPersistentStoreOption, true);
    bool const isReadOnly = options.options[NSReadOnlyPersistentStoreOption].boolean();
    if (!isReadOnly) makeFolders(storeURL_->path(), folderMode(options.fileMode));
    bool const existed =
        NSFileManager::defaultManager()->fileExistsAtURL(file); // decided here, before a replacement can change it
    openStore(file, options);
    return existed;
}

void ManagedObjectStore::openStore(NSURL const& file, StoreOptions& options) {
    options.options.set(NSFilePosixPermissions, std::int64_t{options.fileMode});
    bool const isReadOnly = options.options[NSReadOnlyPersistentStoreOption].boolean();
    auto const waiting = make<FolderWaiting>(std::move(options.onWaiting), options.timeLimit,
                                             isReadOnly ? std::string() : storeURL_->path(), folderMode(options.fileMode));
    options.options.set(NSStoreWaitingOption, waiting);
    if (options.onProgress) options.options.set(NSStoreOpeningOption, make<StoreOpening>(std::move(options.onProgress)));
    auto const opening = options.options[NSStoreOpeningOption].objectAs<StoreOpening>();
    auto const throwIfCancelled = [&] {
        if (opening && opening->isCancelled()) throw ErrorException(opening->cancellation());
    };
    // No limit unless one is set: what cannot be opened is made anew, and a place that can never hold a store keeps it trying.
    Ref<StoreRefusal> allowed;
    auto wanted = StoreOptions::AfterRefusal::StartEmpty;
    for (bool isFirst = true;; isFirst = false) {
        Ref<NSError> error;
        if (coordinator_->addPersistentStoreWithType(NSSQLiteStoreType, {}, file, options.options, error)) return;
        throwIfCancelled();
        auto const refusal = waiting->isOver() || isReadOnly ? nullptr : StoreRefusal::of(*error);
        if (refusal) {
            bool const isKnown = refusal->isOfEmptyStore() || (allowed && allowed->identity() == refusal->identity());
            if (options.onRefusal && !isKnown)
                wanted = options.onRefusal(error, refusal->plan() ? &*refusal->plan() : nullptr, refusal->copy());
            throwIfCancelled();
            allowed = refusal;
            auto const problem = replaceStore(file, error, *refusal, options.fileMode);
            if (!problem && wanted == StoreOptions::AfterRefusal::Salvage) salvageInto(file, options.fileMode);
            if (!problem && isFirst) continue;
            if (problem) error = problem;
        }
        if (waiting->pause(error)) continue;
        throwIfCancelled();
        throw ErrorException(error);
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
