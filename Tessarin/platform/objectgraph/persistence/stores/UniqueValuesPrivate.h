#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <unordered_map>

namespace Tessarin {

/// Which record of the store without a file has which unique values. Guarded by the store's lock.
class UniqueValues {
public:
    explicit UniqueValues(UniqueConstraints const& constraints) : constraints_(constraints), holders_(constraints.count()) {}

    void exchange(RecordKey key, Row const* before, Row const* after);
    /// 0: nobody.
    RecordKey holder(UniqueConstraint const& constraint, std::string const& values) const;
    UniqueConstraints const& constraints() const noexcept { return constraints_; }

private:
    UniqueConstraints const& constraints_;
    std::vector<std::unordered_map<std::string, RecordKey>> holders_; // by constraint
};

/// Tries change sets one after another, without changing anything.
class UniqueTrial {
public:
    using StoredRow = FunctionRef<RowRef(NSEntityDescription const& entity, RecordKey key)>;
    UniqueTrial(UniqueValues const& values, StoredRow stored) : values_(values), stored_(stored) {}

    /// The error leaves the trial as it was before the set.
    Ref<NSError> add(ChangeSet const& set);

private:
    struct Step { // to be taken back
        std::size_t constraint;
        std::string values;
        RecordKey holder;
    };
    RowRef rowOf(RecordChange const& change) const;
    void setHolder(UniqueConstraint const& constraint, std::string const& values, RecordKey key);
    RecordKey holder(UniqueConstraint const& constraint, std::string const& values) const;

    UniqueValues const& values_;
    StoredRow stored_;
    std::unordered_map<RecordKey, RowRef> rows_; // as they are after the sets
    std::vector<std::unordered_map<std::string, RecordKey>> holders_; // likewise, by constraint; 0: nobody
    std::vector<Step> steps_;                    // of the set that is tried
};

} // namespace Tessarin
