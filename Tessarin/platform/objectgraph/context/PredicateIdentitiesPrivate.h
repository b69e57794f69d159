#pragma once
#include "Tessarin/platform/foundation/predicates/NSPredicate.h"

namespace Tessarin {

/// The predicate with the identities of the managed objects among its constants in place of those, for use on other threads: an
/// object belongs to its context's queue, an identity to nobody. The predicate itself where there are none; null for null. On the
/// queue of those objects' context.
Ref<NSPredicate> withIdentities(Ref<NSPredicate> const& predicate);

} // namespace Tessarin
