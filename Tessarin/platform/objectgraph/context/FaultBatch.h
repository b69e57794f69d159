#pragma once
#include "Tessarin/platform/objectgraph/persistence/KeyTable.h"
#include "Tessarin/platform/queues/Retained.h"
#include <atomic>
#include <memory>
#include <vector>

namespace Tessarin {

class NSEntityDescription;
class NSManagedObject;

/// Objects that came from the same request or relationship. Firing one fills them all, and walking a to-one of one fetches
/// that relationship for all, so that `book → author → name` over many books costs a handful of statements.
/// Belongs to the context's queue, apart from its count.
struct FaultBatch {
    static constexpr std::size_t mostMembers = 4096; // bounds what one living member keeps alive

    std::atomic<std::uint32_t> references{0};
    NSEntityDescription const* rootEntity = nullptr;
    std::vector<RecordKey> members;
    std::vector<std::uint32_t> walked;                    // properties whose destinations are in `held`
    std::vector<std::shared_ptr<NSManagedObject>> held;   // destinations, kept while a member lives
};

void retainObject(FaultBatch& batch) noexcept;
void releaseObject(FaultBatch& batch) noexcept;

using FaultBatchRef = Retained<FaultBatch>;

} // namespace Tessarin
