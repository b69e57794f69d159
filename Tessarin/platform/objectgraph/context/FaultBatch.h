#pragma once
#include "Tessarin/platform/objectgraph/persistence/KeyTable.h"
#include "Tessarin/platform/queues/Retained.h"
#include <atomic>
#include <memory>
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

    ContextLink& link; // kept, but by its own
    std::atomic<std::uint32_t> references{0};
    NSEntityDescription const* rootEntity = nullptr;
    std::vector<RecordKey> members;
    std::vector<std::uint32_t> walked;                    // properties whose destinations are in `held`
    std::vector<std::shared_ptr<NSManagedObject>> held;   // destinations, kept while a member lives
};

void retainObject(FaultBatch& batch, std::uint32_t count = 1) noexcept;
void releaseObject(FaultBatch& batch) noexcept;

using FaultBatchRef = Retained<FaultBatch>;

} // namespace Tessarin
