#pragma once
#include "Tessarin/platform/runtime/NSObject.h"
#include <cstdint>

namespace Tessarin {

/// Who wins where a record was changed both here and in the store since it was read.
enum class NSMergePolicyType : std::uint64_t {
    Error = 0,
    MergeByPropertyStoreTrump = 1, // property by property; where both changed, the store's value stays
    MergeByPropertyObjectTrump = 2,
    Overwrite = 3,
    Rollback = 4,
};

class TESSARIN_API NSMergePolicy : public NSObject {
public:
    NSMergePolicyType mergeType() const noexcept { return mergeType_; }

protected:
    NSMergePolicy() = default;
    using NSObject::init;
    virtual void init(NSMergePolicyType mergeType) { mergeType_ = mergeType; }

private:
    NSMergePolicyType mergeType_ = NSMergePolicyType::Error;
};

} // namespace Tessarin
