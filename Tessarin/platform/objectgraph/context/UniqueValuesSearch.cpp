#include "Tessarin/platform/objectgraph/context/UniqueValuesSearchPrivate.h"

#include "Tessarin/platform/objectgraph/context/ChangePackerPrivate.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;

/// Whether a change leaves the values of a constraint as they were.
bool hadThem(RecordChange const& change, UniqueConstraint const& constraint, std::string const& values) {
    return change.before && constraint.valuesOf(*change.before) == values;
}

} // namespace

UniqueValuesLook::Search::Search(ContextState& context, ChangeSet const& own)
    : context_(context),
      own_(own),
      constraints_(context.coordinator->space()->constraints()),
      above_(context, RecordReader::Sees::Accepted) {}

void UniqueValuesLook::Search::lookAtAll() {
    for (auto const& change : own_.changes()) lookAt(change);
    answer();
    looked_.reset();
}

bool UniqueValuesLook::Search::lookAgain(std::span<Ref<NSManagedObject> const> objects) {
    Keys next;
    ValuesSet shared;
    firsts_.clear();
    for (auto const& object : objects)
        if (!constraints_.of(object->entity()).empty() && next.insert(object->recordKey()).second) packAgain(*object, shared);
    looked_.emplace();
    bool hasChanged = false;
    for (;;) {
        for (auto const& [constraint, values] : std::exchange(shared, {}))
            for (auto const key : keysWith(*constraint, values))
                if (!looked_->contains(key)) next.insert(key);
        if (next.empty()) return hasChanged;
        hasChanged = look(next, shared) || hasChanged;
        looked_->merge(next);
        next.clear();
    }
}

bool UniqueValuesLook::Search::look(Keys const& keys, ValuesSet& shared) {
    std::unordered_map<RecordKey, std::vector<Clash>> before;
    for (auto const key : keys) {
        if (auto const found = clashes_.extract(key)) before[key] = std::move(found.mapped());
        auto const object = context_.link->find(key);
        auto const* change = object ? find(object->entity(), key) : nullptr;
        if (change) lookAt(*change);
    }
    answer();
    bool hasChanged = false;
    auto const isSame = [](Clash const& a, Clash const& b) {
        return a.constraint == b.constraint && a.holder->key() == b.holder->key();
    };
    for (auto const key : keys) {
        auto const was = before.find(key);
        auto const is = clashes_.find(key);
        if (was == before.end() && is == clashes_.end()) continue;
        bool const isAsBefore =
            was != before.end() && is != clashes_.end() && std::ranges::equal(was->second, is->second, isSame);
        hasChanged = hasChanged || !isAsBefore;
        auto const object = is == clashes_.end() ? context_.link->find(key) : nullptr;
        if (auto const* freed = object ? find(object->entity(), key) : nullptr)
            eachValues(*freed, [&](Values values) { shared.insert(std::move(values)); });
    }
    return hasChanged;
}

void UniqueValuesLook::Search::answer() {
    for (auto const& [constraint, changes] : std::exchange(unanswered_, {})) askStore(*constraint, changes);
}

std::vector<UniqueValuesLook::Clash> UniqueValuesLook::Search::found() const {
    std::vector<Clash> result;
    auto const add = [&](std::vector<Clash> const& clashes) { result.insert(result.end(), clashes.begin(), clashes.end()); };
    for (auto const& [key, clashes] : clashes_)
        if (!looked_) add(clashes);
    for (auto const key : looked_.value_or(Keys()))
        if (auto const found = clashes_.find(key); found != clashes_.end()) add(found->second);
    return sorted(std::move(result));
}

/// What is in the way in memory comes before what is in the store.
std::vector<UniqueValuesLook::Clash> UniqueValuesLook::Search::sorted(std::vector<Clash> clashes) {
    std::ranges::stable_sort(clashes, {}, [](Clash const& clash) {
        return std::tuple(clash.isStored, clash.isStored ? clash.constraint->index : 0,
                          clash.change->entity->rootEntity()->index(), clash.change->key);
    });
    return clashes;
}

void UniqueValuesLook::Search::packAgain(NSManagedObject& object, ValuesSet& shared) {
    auto const key = object.recordKey();
    if (auto const* before = find(object.entity(), key))
        eachValues(*before, [&](Values values) {
            if (again_.contains(key)) keysAgain_[values].erase(key);
            shared.insert(std::move(values));
        });
    auto& now = again_[key];
    now = object.hasChanges() ? ChangePacker(context_).packed(object, false) : std::nullopt;
    if (now)
        eachValues(*now, [&](Values values) {
            keysAgain_[values].insert(key);
            shared.insert(std::move(values));
        });
}

void UniqueValuesLook::Search::eachValues(RecordChange const& change, FunctionRef<void(Values)> each) const {
    if (!change.after) return;
    for (auto const* constraint : constraints_.of(*change.entity))
        if (auto values = constraint->valuesOf(*change.after)) each({constraint, *std::move(values)});
}

RecordChange const* UniqueValuesLook::Search::find(NSEntityDescription const& entity, RecordKey key) const {
    auto const found = again_.find(key);
    if (found == again_.end()) return own_.find(entity, key);
    return found->second ? &*found->second : nullptr;
}

std::vector<RecordKey> UniqueValuesLook::Search::keysWith(UniqueConstraint const& constraint, std::string const& values) const {
    auto keys = own_.keysWith(constraint, values);
    if (again_.empty()) return keys;
    std::erase_if(keys, [&](RecordKey key) { return again_.contains(key); });
    if (auto const found = keysAgain_.find({&constraint, values}); found != keysAgain_.end())
        keys.insert(keys.end(), found->second.begin(), found->second.end());
    return keys;
}

void UniqueValuesLook::Search::lookAt(RecordChange const& change) {
    if (!change.after || !change.changesRow()) return;
    for (auto const* constraint : constraints_.of(*change.entity)) lookAt(change, *constraint);
}

void UniqueValuesLook::Search::lookAt(RecordChange const& change, UniqueConstraint const& constraint) {
    auto const values = constraint.valuesOf(*change.after);
    if (!values || hadThem(change, constraint, *values)) return;
    auto holder = amongOwn(change, constraint, *values);
    if (!holder) holder = amongPublished(change, constraint, *values);
    if (holder)
        clashes_[change.key].push_back({&change, &constraint, std::move(holder)});
    else
        unanswered_[&constraint].push_back(&change);
}

RowRef UniqueValuesLook::Search::amongOwn(RecordChange const& change, UniqueConstraint const& constraint,
                                          std::string const& values) {
    auto [place, isNew] = firsts_.try_emplace({&constraint, values});
    if (isNew) place->second = firstOf(constraint, values);
    auto const* first = place->second;
    return !first || first == &change ? RowRef() : first->after;
}

/// Of the changes of one save, who keeps the values: who had them before, what exists before what is new, the older before
/// the younger.
RecordChange const* UniqueValuesLook::Search::firstOf(UniqueConstraint const& constraint, std::string const& values) const {
    auto const rank = [&](RecordChange const& change) { // temporary keys count downwards
        return std::tuple(!hadThem(change, constraint, values), change.kind == Kind::Insert, change.key < 0,
                          std::abs(change.key));
    };
    RecordChange const* first = nullptr;
    for (auto const key : keysWith(constraint, values))
        if (auto const* other = find(*constraint.entity, key); !first || rank(*other) < rank(*first)) first = other;
    return first;
}

RowRef UniqueValuesLook::Search::amongPublished(RecordChange const& change, UniqueConstraint const& constraint,
                                                std::string const& values) const {
    for (auto const& set : above_.sets())
        for (auto const key : set->keysWith(constraint, values)) {
            if (key == change.key || find(*constraint.entity, key)) continue;
            auto row = above_.row(*constraint.entity, key); // it may have changed since
            if (row && constraint.valuesOf(*row) == values) return row;
        }
    return {};
}

void UniqueValuesLook::Search::askStore(UniqueConstraint const& constraint, std::vector<RecordChange const*> const& changes) {
    if (!above_.store()) return;
    std::vector<RowRef> rows;
    for (auto const* change : changes) rows.push_back(change->after);
    std::vector<RecordKey> holders;
    if (auto error = above_.store()->findHolders(constraint, rows, holders)) throw ErrorException(error);
    for (std::size_t at = 0; at < changes.size(); ++at) {
        if (holders[at] == 0 || holders[at] == changes[at]->key || isOnItsWay(constraint, holders[at])) continue;
        if (auto row = above_.row(*constraint.entity, holders[at]))
            clashes_[changes[at]->key].push_back({changes[at], &constraint, std::move(row), true});
    }
}

/// What the store has of a record is out of date where a set changes it, and was looked at there.
bool UniqueValuesLook::Search::isOnItsWay(UniqueConstraint const& constraint, RecordKey key) const {
    auto const changesRow = [](RecordChange const* change) { return change && change->changesRow(); };
    return changesRow(find(*constraint.entity, key)) ||
           std::ranges::any_of(above_.sets(), [&](auto const& set) { return changesRow(set->find(*constraint.entity, key)); });
}

} // namespace Tessarin
