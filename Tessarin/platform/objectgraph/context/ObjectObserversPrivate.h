#pragma once
#include "Tessarin/platform/objectgraph/context/ContextFeedPrivate.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include <string>
#include <unordered_map>
#include <vector>

namespace Tessarin {

/// Those who observe values of single objects of one context: told what is another value than at the last look. A turn costs the
/// records that it touched, however many are observed.
class ObjectObservers : public ContextFollower {
public:
    using Told = Closure<void(std::span<ValueChange const>)>;

    explicit ObjectObservers(ContextState& context) : context_(context) {}

    ScopedConnection add(Ref<NSManagedObject> object, std::vector<std::string> keys, Told told);
    void follow(ContextTurn const& turn) override;

private:
    struct Observer {
        Ref<NSManagedObject> object; // which its connection keeps in memory
        std::vector<ValueChange> values; // as they were at the last look, in `now`
        Told told;
    };
    void look(NSManagedObject const& object);
    void forgetEnded();
    static void look(Observer& observer);

    ContextState& context_; // which owns this
    std::unordered_multimap<NSManagedObject const*, WeakRef<Observer>> observers_;
    std::size_t leftByLastSweep_ = 0;
};

} // namespace Tessarin
