#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/Required.h"
#include "Tessarin/store/NSManagedObject+Helpers.h"
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

class FetchAwaitable;
class NSError;
class NSFetchRequest;
class NSManagedObjectContext;
class NSPredicate;
class NSSortDescriptor;

struct FetchOptions {
    Ref<NSPredicate> predicate = {};
    std::vector<Ref<NSSortDescriptor>> sortedBy = {};
};
struct AnyObjectOptions {
    Ref<NSPredicate> predicate = {};
    std::vector<Ref<NSSortDescriptor>> sortBy = {};
};
struct DeleteOptions {
    Required<Ref<NSPredicate>> matching;
    bool singleRecord = true;
};
struct SaveOptions {
    bool wait = true;
    bool toDisk = false;
    Closure<void(Ref<NSError>)> completion = {};
};

struct SaveToDiskOptions {
    bool wait = true;
    Closure<void(Ref<NSError>)> completion = {};
};

/// What the store adds to every context. All but `saveAndWait` and `saveToDisk` run on the calling thread, which must be the
/// context's queue.
class TESSARIN_API NSManagedObjectContextOperations {
    friend class NSManagedObjectContext; // only NSManagedObjectContext can carry this room
    NSManagedObjectContextOperations() = default;

public:
    Ref<NSFetchRequest> fetchRequest(std::string_view entityName);
    Ref<NSManagedObject> insertEntityNamed(std::string_view entityName);
    Ref<NSManagedObject> insertObjectNamed(std::string_view entityName);
    /// A new object of T's entity; null when the entity's class is no T.
    template <class T> Ref<T> insertObject();

    /// Counts saved and pending objects. On an error one line is printed and the result is NSNotFound.
    std::int64_t count(std::string_view entityName, Ref<NSPredicate> predicate = {});
    /// On an error one line is printed and the list is empty.
    std::vector<Ref<NSManagedObject>> allObjects(std::string_view entityName, FetchOptions options = {});
    template <class T> std::vector<Ref<T>> allObjects(FetchOptions options = {});
    /// `fetchAsync` without a completion, for `co_await` in a Task; see FetchAwaitable.
    [[nodiscard]] FetchAwaitable fetchAsync(NSFetchRequest const& request);
    /// One object, or null. Without `sortBy`, objects in memory are looked through first, unsaved ones included.
    Ref<NSManagedObject> anyObjectNamed(std::string_view entityName, AnyObjectOptions options = {});
    template <class T> Ref<T> anyObject(AnyObjectOptions options = {});
    /// Deletes the first match, or all of them; nothing is saved. False when nothing matches. Throws ErrorException when the
    /// fetch fails.
    bool deleteRecords(std::string_view entityName, DeleteOptions options);

    /// Saves on the context's own queue; with `toDisk` every ancestor after it, nearest first. With `wait` it returns when
    /// that is done. The completion runs on the context's queue, with the error of this context's save or null; an
    /// ancestor's failure is silent, keeps its changes, and the next save of any level tries them again.
    /// A failed save prints one line.
    void saveAndWait(SaveOptions options = {});
    /// Saves on the context's own queue, then every ancestor, nearest first, and tells what became of it: the completion runs on
    /// the context's queue, with null when the changes are on the disk, else with the first error, of whatever level, also the
    /// store's reason to refuse them for good. It ends at the first level that fails. With `wait` it returns after that.
    void saveToDisk(SaveToDiskOptions options = {});
    /// Refreshes the registered objects that are faults; objects with loaded values are left as they are.
    void refreshAllFaults();

    /// The token's record as an object of this context; null for an absent token and when the object is no T.
    template <class T> Ref<T> reconstitute(Ref<NSManagedObjectHelpers::ThreadsafeToken> const& token);
    /// The same record, read in this context.
    template <class T>
        requires(!std::is_same_v<T, NSManagedObjectHelpers::ThreadsafeToken>)
    Ref<T> reconstitute(Ref<T> const& object);
    /// In the tokens' order; those whose object is no T are left out.
    template <class T> std::vector<Ref<T>> reconstitute(std::vector<Ref<NSManagedObjectHelpers::ThreadsafeToken>> const& tokens);

protected:
    ~NSManagedObjectContextOperations() = default;

private:
    NSManagedObjectContext& home() noexcept;
    bool takeObjects(std::string_view entityName, FetchOptions options,
                     FunctionRef<void(std::span<Ref<NSManagedObject>>, std::size_t)> take);
    Ref<NSManagedObject> objectInMemory(std::string_view entityName, NSPredicate const* predicate);
    Ref<NSManagedObject> objectOf(NSManagedObjectHelpers::ThreadsafeToken const& token);
    Ref<NSManagedObject> objectLike(NSManagedObject const& object);
};

} // namespace Tessarin
