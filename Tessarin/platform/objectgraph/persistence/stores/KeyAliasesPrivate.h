#pragma once
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include <algorithm>
#include <iterator>
#include <vector>

namespace Tessarin {

/// The permanent keys of records that may still be known by temporary ones. Keys of both kinds are handed out in sequence, the
/// temporary ones downward, so that a hundred thousand new records are one run. Not synchronised.
class KeyAliases {
public:
    /// For a temporary key that is not known yet.
    void add(RecordKey temporary, RecordKey permanent) {
        auto const at = after(temporary);
        if (at != runs_.begin()) {
            auto& run = *std::prev(at);
            if (run.temporary - run.count == temporary && run.permanent + run.count == permanent) {
                ++run.count;
                return;
            }
        }
        runs_.insert(at, {temporary, permanent, 1});
    }
    /// 0 when that key has no permanent one.
    RecordKey find(RecordKey temporary) const noexcept {
        auto const at = const_cast<KeyAliases*>(this)->after(temporary);
        if (at == runs_.begin()) return 0;
        auto const& run = *std::prev(at);
        auto const offset = run.temporary - temporary;
        return offset < run.count ? run.permanent + offset : 0;
    }
    void clear() noexcept { runs_ = {}; }

private:
    struct Run {
        RecordKey temporary, permanent; // the first of each; then temporary - 1 and permanent + 1, and so on
        std::int64_t count;
    };
    std::vector<Run>::iterator after(RecordKey temporary) {
        return std::ranges::partition_point(runs_, [&](Run const& run) { return run.temporary >= temporary; });
    }
    std::vector<Run> runs_; // by falling temporary keys
};

} // namespace Tessarin
