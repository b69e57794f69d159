#include "Tessarin/platform/objectgraph/persistence/rows/CommitLogPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"

#include <utility>

namespace Tessarin {

CommitLog::Watch::Watch(Ref<RowSpace> space) : space_(std::move(space)) {
    auto& log = space_->commits();
    std::lock_guard const hold(log.mutex_);
    ++log.watches_;
    first_ = log.sets_.size();
    gaps_ = log.gaps_;
}

CommitLog::Watch::~Watch() {
    ChangeSets released; // after the lock
    auto& log = space_->commits();
    std::lock_guard const hold(log.mutex_);
    if (--log.watches_ == 0) released.swap(log.sets_);
}

CommitLog::ChangeSets CommitLog::Watch::sets() const {
    auto& log = space_->commits();
    std::lock_guard const hold(log.mutex_);
    return {log.sets_.begin() + static_cast<std::ptrdiff_t>(first_), log.sets_.end()};
}

bool CommitLog::Watch::hasGaps() const {
    auto& log = space_->commits();
    std::lock_guard const hold(log.mutex_);
    return log.gaps_ != gaps_;
}

void CommitLog::note(std::span<Ref<ChangeSet const> const> sets) {
    std::lock_guard const hold(mutex_);
    if (watches_ != 0) sets_.insert(sets_.end(), sets.begin(), sets.end());
}

void CommitLog::noteGap() {
    std::lock_guard const hold(mutex_);
    ++gaps_;
}

} // namespace Tessarin
