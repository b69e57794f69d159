#include "Tessarin/platform/objectgraph/context/QueueRequirementPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/runtime/Fatal.h"

namespace Tessarin {
namespace {

/// What a thread without an item runs on.
std::string placeOfThread() {
    if (queueIsHeld(dispatch_get_main_queue())) return "the main thread";
    std::string_view const label = dispatch_queue_get_label(nullptr);
    return label.empty() ? "a thread without a queue, or whose queue has no label" : "the queue \"" + std::string(label) + "\"";
}

[[noreturn]] void refuse(NSManagedObjectContext const& context, std::string const& what) {
    auto const name = context.name();
    auto const own = context.concurrencyType() == NSManagedObjectContextConcurrencyType::MainQueue
                         ? std::string("the main queue")
                         : "a queue of its own, \"" + std::string(dispatch_queue_get_label(context.queue())) + "\"";
    fatal(what + " of the context " + (name.empty() ? "without a name" : "\"" + name + "\"") + ", which belongs to " + own +
          ", was used on " + placeOfThread() + ". Use it in performBlock or performBlockAndWait of that context" +
          (context.concurrencyType() == NSManagedObjectContextConcurrencyType::MainQueue ? ", or on the main thread." : "."));
}

} // namespace

void requireHeld(NSManagedObjectContext const& context, char const* call) {
    if (!queueIsHeld(context.queue())) refuse(context, std::string(call) + "()");
}

void requireHeld(NSManagedObjectContext const& context, NSManagedObject const& object) {
    if (queueIsHeld(context.queue())) return;
    auto const key = object.recordKey();
    refuse(context, "the object " + object.entity().name() + (key < 0 ? " t" : " p") + std::to_string(key < 0 ? -key : key));
}

void NSManagedObject::requireQueue() const {
    // Of a context that is gone nothing is left to be protected.
    if (auto const context = state_.link() ? state_.link()->context() : nullptr) requireHeld(*context, *this);
}

} // namespace Tessarin
