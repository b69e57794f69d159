#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace Tessarin {

class ChangeSet;
class NSEntityDescription;

/// Which records a set has changed on a row that is not the one that the sets before it have left: somebody else changed them
/// meanwhile, and what is seen of them is merged. Found once, from the smaller side. Any thread.
class ChangeMerges {
public:
    using Keys = std::shared_ptr<std::vector<RecordKey> const>;
    using Sets = std::span<Ref<ChangeSet const> const>;

    /// Of one tree of entities. `set` is always the same; `earlier`: those that it is laid over, oldest first.
    Keys find(ChangeSet const& set, NSEntityDescription const& tree, Sets earlier) const;
    /// Whether that costs little.
    bool knows(ChangeSet const& set, NSEntityDescription const& tree, Sets earlier) const;

private:
    struct Answer {
        std::vector<std::uint64_t> earlier; // their numbers
        Keys keys;
    };
    Keys known(NSEntityDescription const& tree, Sets earlier) const;

    mutable std::mutex mutex_;
    mutable std::map<NSEntityDescription const*, Answer> answers_; // guarded by mutex_; the last one for each tree
};

} // namespace Tessarin
