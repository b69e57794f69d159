#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/files/NSURL.h"
#include "Tessarin/platform/objectgraph/context/NSMergePolicy.h"
#include "Tessarin/platform/objectgraph/model/NSManagedObjectModel.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreRefusal.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreWaiting.h"
#include "Tessarin/platform/runtime/Closure.h"
#include <optional>
#include <string>

namespace Tessarin {

/// How a ManagedObjectStore finds its model and names its file. What is absent is taken from the class's settings.
///
///     auto notes = make<ManagedObjectStore>(StoreOptions{.model = model, .filename = "Notes"});
///     auto document = make<ManagedObjectStore>(StoreOptions{.model = model, .filename = "Trip", .directory = folder});
///     auto scratch = make<ManagedObjectStore>(StoreOptions{.model = model, .inMemory = true}); // for a test, or a preview
struct StoreOptions {
    /// Built in code; wins over `modelURL`.
    Ref<NSManagedObjectModel> model = {};
    std::optional<NSURL> modelURL = {};
    /// A name, not a path: 1 to 244 bytes (a file name may have 255, and SQLite appends ".db-journal"), not "." or "..", without
    /// "/" and NUL. Anything else is fatal, here and in the class's settings. In test programs "UnitTest-" is put before it, and
    /// counts.
    std::optional<std::string> filename = {};
    /// In place of the group's container or the user's documents: the file is DIRECTORY/NAME/NAME.db. What is missing of it is
    /// made; a file in its place is waited for to go. Fatal when it is no file URL.
    std::optional<NSURL> directory = {};
    /// No file and no folder, and nothing waits for a disk: what is saved lives as long as the store. Needs no file name, which
    /// means nothing here: two such stores share nothing. Options about files are ignored; with `readOnly` it is fatal.
    bool inMemory = false;
    /// Decides at all levels (root, main, workers) what becomes of an edit of a record that somebody else saved since it was
    /// read, see NSMergePolicy.h. Absent: each level has one of its own of the type MergeByPropertyStoreTrump. In plain words:
    /// who saves first wins. Two edits of different properties both stay; of two edits of the same property the later one is
    /// dropped, its save still succeeds, and its object shows the other value. Nothing else tells of that but
    /// NSManagedObjectContextDidOverruleChangesNotification.
    Ref<NSMergePolicy> mergePolicy = {};
    /// Opens a file that exists for reading, as NSReadOnlyPersistentStoreOption does: nothing is made, migrated or replaced,
    /// and a missing file is waited for. A save of changes fails, at whatever level, with StoreErrorCode::StoreReadOnly and
    /// keeps them.
    bool readOnly = false;
    /// Keeps in the file a history of what is saved: see `NSManagedObjectContext::executeRequest(HistoryRequest)`. Switched off, what
    /// this process saves does not reach others until they read it anew, or meet a conflict.
    bool keepsHistory = true;
    /// Seconds for which the history is kept at least; absent: for ever. By default a week.
    std::optional<double> historyAge = 7 * 86400.0;
    /// What other processes save to the file is brought to all contexts of this store, and to what observes them, soon after they
    /// have saved: unsaved changes stay, as they do when another worker saves. Keeps a history, too.
    bool mergesOtherProcesses = true;
    /// Options of the persistent store; migration and its inference are always switched on.
    Dictionary options = {};
    /// Told, by the thread that makes the store, why it waits: after 1 s, then after 2, 4, 8 and so on. What it throws ends the
    /// making.
    StoreWaiting::Told onWaiting = {};
    /// Told how far a migration has come, or the making of an index, at most once for each hundredth and each step: by the thread
    /// that makes the store; on the main queue where it is opened by `ManagedObjectStore::open`.
    StoreOpening::Told onProgress = {};
    /// Seconds of waiting after which `make` throws the reason as an ErrorException, and `open` gives it; absent: never.
    std::optional<double> timeLimit = {};
    /// Asked before another store is begun in place of one that was refused; `plan` may be null. Copy: the folder in which it is
    /// kept, absent when nothing was in it. What it throws, `make` throws, and what was refused stays where it is. Absent: the
    /// store begins empty. Not asked for a store without records, nor again for the same file.
    enum class AfterRefusal {
        StartEmpty,
        Salvage // what can be read of a damaged one is in the new store, which is empty where nothing can, or for another reason
    };
    Closure<AfterRefusal(Ref<NSError> const& error, MigrationPlan const* plan, std::optional<NSURL> const& copy)> onRefusal = {};
    /// Permissions of the files that are made (the log has its file's), and of folders, which who may read may search, too. What
    /// exists keeps its own.
    std::uint32_t fileMode = 0600;
    /// How many saves may wait for the file, with the imports that run, until `importBlock` puts the next import off; 0: never.
    std::size_t mostPendingSaves = 64;
};

} // namespace Tessarin
