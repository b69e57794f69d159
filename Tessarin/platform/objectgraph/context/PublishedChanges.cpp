#include "Tessarin/platform/objectgraph/context/PublishedChangesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/RowBuilderPrivate.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

// Any thread may call anything here; all fields are under `mutex_`, and none is ever changed in place where somebody may read
// it without: what readers get are shared pointers to lists that nobody changes any more, of sets that are immutable. The mutex
// orders a list's making before whoever takes it. Long work (folding, releasing what left) is done outside: a copy is taken
// together with `state_`, and the result is put in place only if the state is still the same, else it is made anew. `handUp`
// alone needs two contexts at once. It takes both mutexes with std::scoped_lock, in whatever order avoids a deadlock, and moves
// the sets within that one moment, so that a reader who looks at one level after the other while holding neither can tell by
// `state` that it must look again. What a set does to registered objects is not done here: `unapplied_` waits for the context's
// own queue.
namespace Tessarin {
namespace {

/// Also where the parent has shown the same anew.
bool isAlike(RowRef const& a, RowRef const& b) {
    if (a == b || !a || !b) return a == b;
    if (&a->layout() != &b->layout() || a->version() != b->version()) return false;
    for (std::size_t cell = 0; cell < a->layout().cells().size(); ++cell)
        if (!a->cellEquals(cell, *b)) return false;
    return true;
}

/// The row that the parent had read, where the change was made on what the parent has made of it; else null.
RowRef basisOf(RecordChange const& change, ChangeSets const& unsaved) {
    if (!change.before) return {};
    auto const parents = rowChangeIn(unsaved, *change.entity, change.key);
    return parents.before != parents.after && isAlike(parents.after, change.before) ? parents.before : RowRef();
}

Ref<ChangeSet const> rebased(ChangeSet const& set, ChangeSets const& unsaved) {
    std::vector<RecordChange> changes(set.changes().begin(), set.changes().end());
    RowBuilder builder;
    for (auto& change : changes) {
        auto basis = basisOf(change, unsaved);
        if (!basis) continue;
        change.before = std::move(basis);
        if (!change.after) continue;
        builder.begin(*change.after, change.key, change.before->version() + 1);
        change.after = builder.finish();
    }
    return std::make_shared<ChangeSet const>(set.sharedSpace(), std::move(changes), set.origin(), set.undoStep());
}

} // namespace

ChangeSets rebased(ChangeSets const& sets, ChangeSets const& unsaved) {
    if (unsaved.empty()) return sets;
    ChangeSets result;
    for (auto const& set : sets) {
        bool const isBuiltOnIt =
            std::ranges::any_of(set->changes(), [&](auto const& change) { return bool(basisOf(change, unsaved)); });
        result.push_back(isBuiltOnIt ? rebased(*set, unsaved) : set);
    }
    return result;
}

namespace {

ChangeSets copyOf(std::shared_ptr<ChangeSets const> const& sets) { return sets ? *sets : ChangeSets(); }

std::shared_ptr<ChangeSets const> withMore(ChangeSets list, ChangeSets const& more) {
    for (auto const& set : more) addFolded(list, set);
    return std::make_shared<ChangeSets>(std::move(list));
}

/// What the main queue asks of those that are new need not be made there.
void prepare(ChangeSets const& now, std::shared_ptr<ChangeSets const> const& before) {
    for (auto const& set : now)
        if (!before || std::ranges::find(*before, set) == before->end()) set->prepare();
}

void removeFrom(ChangeSets& sets, ChangeSets const& leaving) {
    std::unordered_set<ChangeSet const*> gone;
    for (auto const& set : leaving) gone.insert(set.get());
    std::erase_if(sets, [&](auto const& set) { return gone.contains(set.get()); });
}

} // namespace

void PublishedChanges::append(ChangeSets const& sets, Shared read) {
    if (!sets.empty()) ++arrivals_;
    ++state_;
    sets_.insert(sets_.end(), sets.begin(), sets.end());
    read_ = std::move(read);
    noteShown();
}

/// At the end of each change, with the mutex held.
void PublishedChanges::noteShown() noexcept {
    bool const isShown = !aside_->empty() || !read_->empty() || !unsaved_->empty();
    shown_.store(state_ * 2 + (isShown ? 1 : 0), std::memory_order_release);
}

/// What is read is folded outside the locks, on what stands there then; should something change meanwhile, once more.
bool PublishedChanges::handUp(ChangeSets const& leaving, ChangeSets const& sets, PublishedChanges& parent, std::uint64_t seen) {
    for (;;) {
        auto const above = parent.forReading();
        std::unique_lock reading(mutex_);
        auto const state = state_;
        auto staying = sets_;
        reading.unlock();
        removeFrom(staying, leaving);
        auto const readAbove = withMore(copyOf(above.sets), sets);
        prepare(*readAbove, above.sets);
        Shared readHere = withMore({}, staying);
        std::scoped_lock const hold(mutex_, parent.mutex_);
        if (parent.arrivals_ != seen) return false;
        if (state_ != state || parent.state_ != above.state) continue;
        parent.append(sets, readAbove);
        for (auto const& set : sets) parent.unapplied_.push_back({set});
        sets_.swap(staying); // what leaves is released after the locks
        read_.swap(readHere);
        ++state_;
        noteShown();
        return true;
    }
}

std::uint64_t PublishedChanges::arrivals() const {
    std::lock_guard const hold(mutex_);
    return arrivals_;
}

void PublishedChanges::receive(Arrival arrival) {
    std::lock_guard const hold(mutex_);
    unapplied_.push_back(std::move(arrival));
}

void PublishedChanges::addReader(Ref<NSManagedObjectContext> const& child) {
    std::lock_guard const hold(mutex_);
    if (readers_.size() >= sweepReadersAt_) {
        std::erase_if(readers_, [](auto const& each) { return each.expired(); });
        sweepReadersAt_ = std::max<std::size_t>(16, readers_.size() * 2);
    }
    readers_.push_back(child);
}

std::vector<Ref<NSManagedObjectContext>> PublishedChanges::readers() const {
    std::vector<Ref<NSManagedObjectContext>> living;
    std::lock_guard const hold(mutex_);
    for (auto const& each : readers_)
        if (auto child = each.lock()) living.push_back(std::move(child));
    return living;
}

ChangeSets PublishedChanges::current() const {
    std::lock_guard const hold(mutex_);
    return sets_;
}

bool PublishedChanges::empty() const { return count() == 0; }

std::size_t PublishedChanges::count() const {
    std::lock_guard const hold(mutex_);
    return sets_.size();
}

PublishedChanges::Reading PublishedChanges::forReading() const {
    std::lock_guard const hold(mutex_);
    auto const unlessEmpty = [](Shared const& sets) { return sets->empty() ? Shared() : sets; };
    return {unlessEmpty(aside_), unlessEmpty(read_), unlessEmpty(unsaved_), state_};
}

std::uint64_t PublishedChanges::state() const {
    std::lock_guard const hold(mutex_);
    return state_;
}

std::shared_ptr<ChangeSets const> PublishedChanges::unsaved() const {
    std::lock_guard const hold(mutex_);
    return unsaved_;
}

void PublishedChanges::setUnsaved(ChangeSets unsaved) {
    std::shared_ptr<ChangeSets const> next =
        std::make_shared<ChangeSets>(std::move(unsaved)); // the older one is released after the lock
    std::lock_guard const hold(mutex_);
    if (next->empty() && unsaved_->empty()) return;
    std::swap(unsaved_, next);
    noteUnsaved();
    noteShown();
}

ChangeSets PublishedChanges::stage(Ref<ChangeSet const> const& own) {
    auto const more = own ? ChangeSets{own} : ChangeSets{};
    for (;;) {
        auto const before = forReading();
        auto const read = withMore(copyOf(before.sets), more);
        Shared none = std::make_shared<ChangeSets>(); // what is unsaved is released after the lock
        std::lock_guard const hold(mutex_);
        if (state_ != before.state) continue;
        append(more, read);
        if (!unsaved_->empty()) noteUnsaved();
        unsaved_.swap(none);
        noteShown();
        return sets_;
    }
}

void PublishedChanges::add(Ref<ChangeSet const> const& set) {
    for (;;) {
        auto const before = forReading();
        auto const read = withMore(copyOf(before.sets), {set});
        std::lock_guard const hold(mutex_);
        if (state_ == before.state) return append({set}, read);
    }
}

void PublishedChanges::unstage(Ref<ChangeSet const> const& own) {
    if (!own) return;
    exchange([&](ChangeSets& sets, ChangeSets&) { std::erase(sets, own); }, std::make_shared<ChangeSets>(ChangeSets{own}));
}

std::vector<PublishedChanges::Arrival> PublishedChanges::takeUnapplied() {
    std::lock_guard const hold(mutex_);
    return std::exchange(unapplied_, {});
}

/// What is read is folded again outside the lock; should something change meanwhile, once more.
void PublishedChanges::exchange(FunctionRef<void(ChangeSets& sets, ChangeSets& aside)> change, Shared unsaved) {
    for (;;) {
        std::unique_lock hold(mutex_);
        auto const state = state_;
        auto sets = sets_, aside = *aside_;
        hold.unlock();
        change(sets, aside);
        Shared released[] = {withMore({}, sets), std::make_shared<ChangeSets>(std::move(aside))}; // after the lock
        hold.lock();
        if (state_ != state) continue;
        ++state_;
        std::swap(sets_, sets);
        std::swap(read_, released[0]);
        std::swap(aside_, released[1]);
        if (unsaved) std::swap(unsaved_, unsaved), noteUnsaved();
        noteShown();
        hold.unlock();
        return;
    }
}

void PublishedChanges::remove(ChangeSets const& sets) {
    if (sets.empty()) return;
    exchange([&](ChangeSets& all, ChangeSets&) { removeFrom(all, sets); });
}

void PublishedChanges::setAside(ChangeSets const& sets) {
    exchange([&](ChangeSets& all, ChangeSets& aside) {
        for (auto const& set : sets) {
            std::erase(all, set);
            aside.push_back(set);
        }
    });
}

void PublishedChanges::dropAside() {
    exchange([](ChangeSets&, ChangeSets& aside) { aside.clear(); });
}

} // namespace Tessarin
