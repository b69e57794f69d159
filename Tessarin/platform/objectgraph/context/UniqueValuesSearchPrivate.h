#pragma once
#include "Tessarin/platform/objectgraph/context/UniqueValuesLookPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/UniqueConstraintsPrivate.h"
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace Tessarin {

/// Who is in whose way among what a context is about to save, as it was packed; afterwards kept up at the price of what is
/// touched: in a row of records each of which is behind the next, one look at all for each that gives way would be far too many.
class UniqueValuesLook::Search {
public:
    Search(ContextState& context, ChangeSet const& own);

    void lookAtAll();
    /// Packs these anew and looks again at them, at those who have values of theirs, and at those who were behind one that is in
    /// nobody's way any more. False when that changes nothing.
    bool lookAgain(std::span<Ref<NSManagedObject> const> objects);

    bool isEmpty() const noexcept { return clashes_.empty(); }
    /// Whether this record has to give way itself.
    bool gives(RecordKey key) const { return clashes_.contains(key); }
    /// Those found in the last look, and the first of all.
    std::vector<Clash> found() const;
    Clash first() const { return sorted(clashes_.begin()->second).front(); }

private:
    using Values = std::pair<UniqueConstraint const*, std::string>;
    struct HashOfValues {
        std::size_t operator()(Values const& values) const noexcept {
            return std::hash<std::string>{}(values.second) + values.first->index;
        }
    };
    using ValuesSet = std::unordered_set<Values, HashOfValues>;
    using Keys = std::unordered_set<RecordKey>;
    /// The values of those who were in somebody's way and are not any more are added to `shared`.
    bool look(Keys const& keys, ValuesSet& shared);
    void answer();
    void lookAt(RecordChange const& change);
    void lookAt(RecordChange const& change, UniqueConstraint const& constraint);
    RowRef amongOwn(RecordChange const& change, UniqueConstraint const& constraint, std::string const& values);
    RecordChange const* firstOf(UniqueConstraint const& constraint, std::string const& values) const;
    RowRef amongPublished(RecordChange const& change, UniqueConstraint const& constraint, std::string const& values) const;
    void askStore(UniqueConstraint const& constraint, std::vector<RecordChange const*> const& changes);
    bool isOnItsWay(UniqueConstraint const& constraint, RecordKey key) const;
    RecordChange const* find(NSEntityDescription const& entity, RecordKey key) const;
    std::vector<RecordKey> keysWith(UniqueConstraint const& constraint, std::string const& values) const;
    /// Calls `each` for the values that the record has and that must be unique.
    void eachValues(RecordChange const& change, FunctionRef<void(Values)> each) const;
    void packAgain(NSManagedObject& object, ValuesSet& shared);
    static std::vector<Clash> sorted(std::vector<Clash> clashes);

    ContextState& context_;
    ChangeSet const& own_;
    UniqueConstraints const& constraints_;
    RecordReader above_;
    std::unordered_map<RecordKey, std::optional<RecordChange>>
        again_; // in place of those of `own_`; none for what is unchanged, or gone
    std::unordered_map<Values, Keys, HashOfValues> keysAgain_;
    std::map<RecordKey, std::vector<Clash>> clashes_;
    std::optional<Keys> looked_; // at, in the last look; absent: all
    std::map<UniqueConstraint const*, std::vector<RecordChange const*>> unanswered_;
    std::unordered_map<Values, RecordChange const*, HashOfValues> firsts_; // of those that have the values
};

} // namespace Tessarin
