#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/NSManagedObjectID.h"
#include <vector>

namespace Tessarin {

/// What a batch request tells when it is done.
enum class NSBatchRequestResultType : std::uint64_t {
    StatusOnly = 0, // that it is done
    ObjectIDs = 1,  // which records it changed or deleted
    Count = 2,      // how many
};
using NSBatchUpdateRequestResultType = NSBatchRequestResultType;
using NSBatchDeleteRequestResultType = NSBatchRequestResultType;

/// A batch request that succeeded. Immutable; any thread.
class TESSARIN_API NSBatchResult : public NSObject {
public:
    NSBatchRequestResultType resultType() const noexcept { return resultType_; }
    /// 0 when the request asked for the status only.
    std::int64_t count() const noexcept { return count_; }
    /// Empty unless the request asked for them; in no particular order. What was only relinked because a record it led to was
    /// deleted is not among them.
    std::vector<Ref<NSManagedObjectID>> const& objectIDs() const noexcept { return objectIDs_; }

protected:
    NSBatchResult() = default;
    using NSObject::init;
    virtual void init(NSBatchRequestResultType resultType, std::int64_t count, std::vector<Ref<NSManagedObjectID>> objectIDs) {
        resultType_ = resultType;
        count_ = count;
        objectIDs_ = std::move(objectIDs);
    }

private:
    NSBatchRequestResultType resultType_{};
    std::int64_t count_ = 0;
    std::vector<Ref<NSManagedObjectID>> objectIDs_;
};

class TESSARIN_API NSBatchUpdateResult : public NSBatchResult {
protected:
    NSBatchUpdateResult() = default;
};

class TESSARIN_API NSBatchDeleteResult : public NSBatchResult {
protected:
    NSBatchDeleteResult() = default;
};

} // namespace Tessarin
