#pragma once
#include "Notes.h"
#include <functional>

namespace notes {

/// Generated notes, made beside the window by a worker: they come all together, as one step of the undo menu, or not at all.
class Import {
public:
    /// Both are called on the main queue.
    struct Told {
        std::function<void(std::size_t done)> progress;
        std::function<void(bool hasCome)> ended;
    };
    static Tessarin::Ref<Import> start(Tessarin::ManagedObjectStore& store, std::size_t count, Told told);
    /// Any thread; too late when they have come.
    void cancel() { isCancelled_.set(true); }

private:
    bool run(Tessarin::NSManagedObjectContext& context, std::size_t count, Told const& told);
    Tessarin::Cell<bool> isCancelled_;
};

} // namespace notes
