#include "Tessarin/platform/objectgraph/context/UniqueValuesLookPrivate.h"

#include "Tessarin/platform/objectgraph/context/ChangePackerPrivate.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;

/// Whether a change leaves the values of a constraint as they were.
bool hadThem(RecordChange const& change, UniqueConstraint const& constraint, std::string const& values) {
    return change.before && constraint.valuesOf(*change.before) == values;
}

} // namespace

class UniqueValuesLook::Search {
public:
    Search(ContextState& context, ChangeSet const& own)
        : own_(own), constraints_(context.coordinator->space()->constraints()), above_(context, RecordReader::Sees::Accepted) {}

    std::vector<Clash> run() {
        for (auto const& change : own_.changes()) {
            if (!change.after || !change.changesRow()) continue;
            for (auto const* constraint : constraints_.of(*change.entity)) lookAt(change, *constraint);
        }
        for (auto const& [constraint, changes] : unanswered_) askStore(*constraint, changes);
        return std::move(clashes_);
    }

private:
    void lookAt(RecordChange const& change, UniqueConstraint const& constraint) {
        auto const values = constraint.valuesOf(*change.after);
        if (!values || hadThem(change, constraint, *values)) return;
        auto holder = amongOwn(change, constraint, *values);
        if (!holder) holder = amongPublished(change, constraint, *values);
        if (holder)
            clashes_.push_back({&change, &constraint, std::move(holder)});
        else
            unanswered_[&constraint].push_back(&change);
    }

    RowRef amongOwn(RecordChange const& change, UniqueConstraint const& constraint, std::string const& values) {
        auto [place, isNew] = firsts_.try_emplace({&constraint, values});
        if (isNew) place->second = firstOf(constraint, values);
        auto const* first = place->second;
        return !first || first == &change ? RowRef() : first->after;
    }

    /// Of the changes of one save, who keeps the values: who had them before, what exists before what is new, the older before
    /// the younger.
    RecordChange const* firstOf(UniqueConstraint const& constraint, std::string const& values) const {
        auto const rank = [&](RecordChange const& change) { // temporary keys count downwards
            return std::tuple(!hadThem(change, constraint, values), change.kind == Kind::Insert, change.key < 0,
                              std::abs(change.key));
        };
        RecordChange const* first = nullptr;
        for (auto const key : own_.keysWith(constraint, values))
            if (auto const* other = own_.find(*constraint.entity, key); !first || rank(*other) < rank(*first)) first = other;
        return first;
    }

    RowRef amongPublished(RecordChange const& change, UniqueConstraint const& constraint, std::string const& values) const {
        for (auto const& set : above_.sets())
            for (auto const key : set->keysWith(constraint, values)) {
                if (key == change.key || own_.find(*constraint.entity, key)) continue;
                auto row = above_.row(*constraint.entity, key); // it may have changed since
                if (row && constraint.valuesOf(*row) == values) return row;
            }
        return {};
    }

    void askStore(UniqueConstraint const& constraint, std::vector<RecordChange const*> const& changes) {
        if (!above_.store()) return;
        std::vector<RowRef> rows;
        for (auto const* change : changes) rows.push_back(change->after);
        std::vector<RecordKey> holders;
        if (auto error = above_.store()->findHolders(constraint, rows, holders)) throw ErrorException(error);
        for (std::size_t at = 0; at < changes.size(); ++at) {
            if (holders[at] == 0 || holders[at] == changes[at]->key || isOnItsWay(constraint, holders[at])) continue;
            if (auto row = above_.row(*constraint.entity, holders[at]))
                clashes_.push_back({changes[at], &constraint, std::move(row)});
        }
    }

    /// What the store has of a record is out of date where a set changes it, and was looked at there.
    bool isOnItsWay(UniqueConstraint const& constraint, RecordKey key) const {
        auto const changes = [&](ChangeSet const& set) {
            auto const* change = set.find(*constraint.entity, key);
            return change && change->changesRow();
        };
        return changes(own_) || std::ranges::any_of(above_.sets(), [&](auto const& set) { return changes(*set); });
    }

    ChangeSet const& own_;
    UniqueConstraints const& constraints_;
    RecordReader above_;
    std::vector<Clash> clashes_;
    std::map<UniqueConstraint const*, std::vector<RecordChange const*>> unanswered_;
    std::map<std::pair<UniqueConstraint const*, std::string>, RecordChange const*> firsts_; // of those that have the values
};

Ref<NSError> UniqueValuesLook::settle(bool& hasUnited) {
    auto const& constraints = context_.coordinator->space()->constraints();
    if (constraints.count() == 0) return nullptr;
    for (std::vector<std::tuple<RecordKey, UniqueConstraint const*, RecordKey>> before;;) {
        auto const own = ChangePacker(context_).pack(constraints);
        if (!own) return nullptr;
        auto const clashes = Search(context_, *own).run();
        if (clashes.empty()) return nullptr;
        hasUnited = true;
        std::vector<std::tuple<RecordKey, UniqueConstraint const*, RecordKey>> now;
        for (auto const& [change, constraint, holder] : clashes) now.emplace_back(change->key, constraint, holder->key());
        bool const goesOn = now != std::exchange(before, now); // a policy that changes nothing would be asked for ever
        if (auto error = decide(clashes, goesOn ? *owner_.mergePolicy() : *NSErrorMergePolicy())) return error;
    }
}

bool UniqueValuesLook::isFree(ChangeSet const& own) const {
    return context_.coordinator->space()->constraints().count() == 0 || Search(context_, own).run().empty();
}

} // namespace Tessarin
