#pragma once
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"
#include "Tessarin/platform/objectgraph/model/ModelBuilder.h"
#include "fuzz/campaigns/Campaign.h"

namespace Tessarin::campaigns {

using Objects = std::vector<Ref<NSManagedObject>>;

/// Batches of items in their order; items that know one another.
Ref<NSManagedObjectModel> const& shelfModel();
/// The same a version later: a batch has a title, an item's label is its name, its value is wider, and it may be in several
/// batches.
Ref<NSManagedObjectModel> const& laterShelfModel();

enum class Inference { Allowed, Forbidden };
enum class Synchronous { Off, Normal, Full };

/// Brings the log into the file, over a connection of its own.
void checkpoint(std::string const& file);

/// A store's file with the contexts of an application over it.
class Shelf {
public:
    /// Throws ErrorException when the file is refused.
    explicit Shelf(std::string const& file, Ref<NSManagedObjectModel> const& model = shelfModel(),
                   Inference inference = Inference::Allowed, Synchronous synchronous = Synchronous::Full);
    Ref<NSManagedObjectContext> worker() const;
    /// Saves a worker and all above it; on the caller's thread. Throws what fails.
    void saveToDisk(NSManagedObjectContext& worker) const;
    void checkpoint() const { campaigns::checkpoint(coordinator->store()->url().path()); }

    Ref<NSPersistentStoreCoordinator> coordinator;
    Ref<NSManagedObjectContext> root, main;
};

void saveOrThrow(NSManagedObjectContext& context);
Objects fetched(NSManagedObjectContext& context, char const* entity, Ref<NSPredicate> predicate = nullptr);
inline std::int64_t integerOf(NSManagedObject& object, char const* key) { return object.valueForKey(key).integer(); }

/// Runs `work` on the context's queue and throws here what it throws there.
void onQueueOf(NSManagedObjectContext& context, FunctionRef<void()> work);

/// Lets SQLite itself judge the file.
void requireIntegrity(std::string const& file);

} // namespace Tessarin::campaigns
