#pragma once
#include <cstdint>

namespace Tessarin {

/// Who wins where a record was changed both here and elsewhere since it was read here. NSMergePolicy.h tells what each does.
enum class NSMergePolicyType : std::uint64_t {
    Error = 0,
    MergeByPropertyStoreTrump = 1,
    MergeByPropertyObjectTrump = 2,
    Overwrite = 3,
    Rollback = 4,
};

} // namespace Tessarin
