#pragma once
#include "Tessarin/platform/queues/QueueChecks.h"

namespace Tessarin {

class NSManagedObject;
class NSManagedObjectContext;

/// Fatal when the thread is not on the context's queue; names what was used: a call, or an object of the context.
void requireHeld(NSManagedObjectContext const& context, char const* call);
void requireHeld(NSManagedObjectContext const& context, NSManagedObject const& object);

/// The same while queues are checked; nothing else.
inline void requireQueue(NSManagedObjectContext const& context, char const* call) {
    if (queuesAreChecked()) [[unlikely]]
        requireHeld(context, call);
}

} // namespace Tessarin
