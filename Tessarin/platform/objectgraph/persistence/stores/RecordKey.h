#pragma once
#include <cstdint>

namespace Tessarin {

/// The key of a record: unique in its store, positive once it is permanent, negative while it is temporary; 0 is no record.
using RecordKey = std::int64_t;

} // namespace Tessarin
