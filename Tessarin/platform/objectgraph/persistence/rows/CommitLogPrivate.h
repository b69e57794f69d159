#pragma once
#include "Tessarin/platform/runtime/Ref.h"
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace Tessarin {

class ChangeSet;
class RowSpace;

/// What was committed through a coordinator while somebody watches: for those who have asked the store before, and have to
/// correct its answer. Keeps nothing while nobody does. Any thread.
class CommitLog {
public:
    using ChangeSets = std::vector<Ref<ChangeSet const>>;

    /// From its making on, until it goes.
    class Watch {
    public:
        explicit Watch(Ref<RowSpace> space);
        Watch(Watch const&) = delete;
        Watch& operator=(Watch const&) = delete;
        ~Watch();
        /// What was committed since, oldest first.
        ChangeSets sets() const;
        /// Whether something was committed that is not among those, by a batch request or by another process that was heard of.
        bool hasGaps() const;

    private:
        Ref<RowSpace> const space_;
        std::size_t first_;    // of `sets_`
        std::uint64_t gaps_;
    };

    /// These are in the store. To be told before any context lets go of them.
    void note(std::span<Ref<ChangeSet const> const> sets);
    /// The store was changed past all contexts.
    void noteGap();

private:
    mutable std::mutex mutex_;
    ChangeSets sets_;        // guarded by mutex_, like what follows
    std::size_t watches_ = 0;
    std::uint64_t gaps_ = 0;
};

} // namespace Tessarin
