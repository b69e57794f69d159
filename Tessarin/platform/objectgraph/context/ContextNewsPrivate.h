#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <unordered_map>

namespace Tessarin {

class ContextState;
class NSManagedObject;

/// What a context has not announced yet of what happened to its objects. Empty as long as nobody listens.
struct ContextNews {
    enum Kind : unsigned { Inserted = 1, Updated = 2, Deleted = 4, Refreshed = 8, Invalidated = 16 };
    struct Entry {
        Ref<NSManagedObject> object;
        unsigned kinds = 0;
    };
    using Entries = std::unordered_map<NSManagedObject*, Entry>;

    Entries entries;
    int openBlocks = 0;       // blocks on the context's queue that end with an announcement
    bool isScheduled = false; // for the end of this turn of the main queue
};

/// Whether somebody observes the changes of contexts.
bool hasChangeObservers();
/// Notes for the next announcement what happened to the object; outside any block of a context of the main queue, that
/// announcement comes at the end of this turn.
void noteNews(ContextState& context, NSManagedObject& object, ContextNews::Kind kind);

} // namespace Tessarin
