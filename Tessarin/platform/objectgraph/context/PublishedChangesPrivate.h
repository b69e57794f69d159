#pragma once
#include "Tessarin/platform/objectgraph/persistence/ChangeSet.h"
#include <memory>
#include <mutex>
#include <vector>

namespace Tessarin {

using ChangeSets = std::vector<Ref<ChangeSet const>>;

/// The change sets that children handed to a context and that it has not handed on yet, in their order. Readers of the
/// levels below take the whole list without entering the context's queue. Any thread.
class PublishedChanges {
public:
    void receive(ChangeSets const& sets);
    /// The sets that stand here now.
    std::shared_ptr<ChangeSets const> current() const;
    /// The sets received since the last call: their effect on registered objects is the context's to apply.
    ChangeSets takeUnapplied();
    /// Handed on (to the parent, or to the file): they leave, in whatever order others have come meanwhile.
    void remove(ChangeSets const& sets);

private:
    mutable std::mutex mutex_;
    std::shared_ptr<ChangeSets const> current_ = std::make_shared<ChangeSets>(); // guarded by mutex_, like what follows
    ChangeSets unapplied_;
};

} // namespace Tessarin
