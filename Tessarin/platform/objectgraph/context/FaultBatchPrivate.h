#pragma once
#include "Tessarin/platform/objectgraph/context/ObjectState.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include <atomic>
#include <memory>
#include <span>
#include <vector>

namespace Tessarin {

class ContextLink;
class NSEntityDescription;
class NSManagedObject;

/// Objects that came from the same request or relationship. Firing one fills them all, and walking a to-one of one fetches
/// that relationship for all, so that `book → author → name` over many books costs a handful of statements. It is also an
/// object's way to its context; objects that came alone share the link's own batch, which has no members.
/// Belongs to the context's queue, apart from its count.
struct FaultBatch {
    static constexpr std::size_t mostMembers = 4096; // bounds what one living member keeps alive

    FaultBatch(ContextLink& owner, NSEntityDescription const& entity);
    explicit FaultBatch(ContextLink& owner) noexcept : link(owner) {} // the link's own
    FaultBatch(FaultBatch const&) = delete;
    FaultBatch& operator=(FaultBatch const&) = delete;
    ~FaultBatch();
    bool isLone() const noexcept { return rootEntity == nullptr; }
    /// Not what is of this or an older batch, which may lead back here: a circle would keep itself, the context's link and the
    /// store for ever.
    bool mayHold(NSManagedObject& object) const;
    /// Keeps destinations while a member lives, as far as it may.
    void hold(std::span<std::shared_ptr<NSManagedObject> const> objects);

    ContextLink& link; // kept, but by its own
    std::atomic<std::uint32_t> references{0};
    NSEntityDescription const* rootEntity = nullptr;
    std::uint64_t number = 0; // in the order in which the link's batches were made
    std::vector<RecordKey> members;
    std::vector<std::uint32_t> walked;                  // properties whose destinations are in `held`
    std::vector<std::shared_ptr<NSManagedObject>> held; // destinations, kept while a member lives
    /// How far the members' to-many relationships have been read one after the other; see `readMembersAhead`.
    struct Walk {
        std::uint32_t property = 0;
        std::uint32_t next = 0;    // the position that goes on with it
        std::uint32_t length = 0;  // of the last step
        std::vector<std::shared_ptr<NSManagedObject>> held; // the last step's destinations
    };
    std::vector<Walk> walks;
};

} // namespace Tessarin
