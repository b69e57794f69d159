#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Ref.h"
#include <mutex>
#include <vector>

namespace Tessarin {

class ChangeSet;

/// Somebody who wants to know what others, processes or coordinators, wrote to the file. Told on any thread.
class OthersChangesTaker {
public:
    virtual ~OthersChangesTaker() = default;
    /// Records as they are now.
    virtual void take(Ref<ChangeSet const> const& set) = 0;
    /// More than anybody can name.
    virtual void takeEverything() = 0;
};

/// Those of one coordinator, held weakly: its root contexts. Any thread.
class TESSARIN_API OthersChanges {
public:
    void add(Ref<OthersChangesTaker> const& taker);
    void tell(Ref<ChangeSet const> const& set) const;
    void tellEverything() const;

private:
    std::vector<Ref<OthersChangesTaker>> living() const;

    mutable std::mutex mutex_;
    std::vector<WeakRef<OthersChangesTaker>> takers_; // guarded by mutex_
};

} // namespace Tessarin
