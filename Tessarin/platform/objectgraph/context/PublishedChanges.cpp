#include "Tessarin/platform/objectgraph/context/PublishedChangesPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/RowBuilder.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace Tessarin {
namespace {

RecordChange const* basisOf(RecordChange const& change, ChangeSet const& unsaved) {
    if (!change.before) return nullptr;
    auto const* basis = unsaved.find(*change.entity, change.key);
    return basis && basis->before && basis->after == change.before && basis->before != basis->after ? basis : nullptr;
}

Ref<ChangeSet const> rebased(ChangeSet const& set, ChangeSet const& unsaved) {
    std::vector<RecordChange> changes(set.changes().begin(), set.changes().end());
    RowBuilder builder;
    for (auto& change : changes) {
        auto const* basis = basisOf(change, unsaved);
        if (!basis) continue;
        change.before = basis->before;
        if (!change.after) continue;
        builder.begin(*change.after, basis->before->version() + 1);
        change.after = builder.finish();
    }
    return std::make_shared<ChangeSet const>(set.sharedSpace(), std::move(changes));
}

} // namespace

ChangeSets rebased(ChangeSets const& sets, Ref<ChangeSet const> const& unsaved) {
    if (!unsaved) return sets;
    ChangeSets result;
    for (auto const& set : sets) {
        bool const isBuiltOnIt = std::ranges::any_of(set->changes(), [&](auto const& change) { return basisOf(change, *unsaved); });
        result.push_back(isBuiltOnIt ? rebased(*set, *unsaved) : set);
    }
    return result;
}

bool PublishedChanges::receive(ChangeSets const& sets, std::uint64_t seen) {
    return append(sets, [&] {
        if (arrivals_ != seen) return false;
        for (auto const& set : sets) unapplied_.push_back({set});
        return true;
    });
}

/// What is read is folded outside the lock, on what stands there then; should something change meanwhile, once more.
bool PublishedChanges::append(ChangeSets const& sets, FunctionRef<bool()> accept) {
    for (;;) {
        auto const before = forReading();
        auto next = std::make_shared<ChangeSets>(*before.sets);
        for (auto const& set : sets) addFolded(*next, set);
        std::lock_guard const hold(mutex_);
        if (state_ != before.state) continue;
        if (!accept()) return false;
        if (!sets.empty()) ++arrivals_;
        ++state_;
        sets_.insert(sets_.end(), sets.begin(), sets.end());
        read_ = std::move(next);
        return true;
    }
}

std::uint64_t PublishedChanges::arrivals() const {
    std::lock_guard const hold(mutex_);
    return arrivals_;
}

void PublishedChanges::receiveCorrections(Ref<ChangeSet const> const& set) {
    std::lock_guard const hold(mutex_);
    unapplied_.push_back({set, true});
}

void PublishedChanges::addReader(Ref<NSManagedObjectContext> const& child) {
    std::lock_guard const hold(mutex_);
    std::erase_if(readers_, [](auto const& each) { return each.expired(); });
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

bool PublishedChanges::empty() const {
    std::lock_guard const hold(mutex_);
    return sets_.empty();
}

PublishedChanges::Reading PublishedChanges::forReading() const {
    std::lock_guard const hold(mutex_);
    return {read_, aside_, state_};
}

ChangeSets PublishedChanges::forChildren() const {
    std::lock_guard const hold(mutex_);
    auto sets = *aside_;
    sets.insert(sets.end(), read_->begin(), read_->end());
    if (unsaved_) sets.push_back(unsaved_);
    return sets;
}

Ref<ChangeSet const> PublishedChanges::unsaved() const {
    std::lock_guard const hold(mutex_);
    return unsaved_;
}

void PublishedChanges::setUnsaved(Ref<ChangeSet const> unsaved) {
    std::lock_guard const hold(mutex_);
    std::swap(unsaved_, unsaved);
}

ChangeSets PublishedChanges::stage(Ref<ChangeSet const> const& own) {
    Ref<ChangeSet const> before; // released after the lock
    ChangeSets staged;
    append(own ? ChangeSets{own} : ChangeSets{}, [&] {
        before = std::exchange(unsaved_, nullptr);
        staged = sets_;
        return true;
    });
    if (own) staged.push_back(own);
    return staged;
}

void PublishedChanges::unstage(Ref<ChangeSet const> const& own) {
    if (!own) return;
    remove({own});
    setUnsaved(own);
}

std::vector<PublishedChanges::Arrival> PublishedChanges::takeUnapplied() {
    std::lock_guard const hold(mutex_);
    return std::exchange(unapplied_, {});
}

/// What is read is folded again outside the lock; should something change meanwhile, once more.
void PublishedChanges::exchange(FunctionRef<void(ChangeSets& sets, ChangeSets& aside)> change) {
    for (;;) {
        std::unique_lock hold(mutex_);
        auto const state = state_;
        auto sets = sets_, aside = *aside_;
        hold.unlock();
        change(sets, aside);
        auto read = std::make_shared<ChangeSets>();
        for (auto const& set : sets) addFolded(*read, set);
        std::shared_ptr<ChangeSets const> released[] = {read, std::make_shared<ChangeSets>(std::move(aside))}; // after the lock
        hold.lock();
        if (state_ != state) continue;
        ++state_;
        std::swap(sets_, sets);
        std::swap(read_, released[0]);
        std::swap(aside_, released[1]);
        hold.unlock();
        return;
    }
}

void PublishedChanges::remove(ChangeSets const& sets) {
    if (sets.empty()) return;
    std::unordered_set<ChangeSet const*> leaving;
    for (auto const& set : sets) leaving.insert(set.get());
    exchange([&](ChangeSets& all, ChangeSets&) { std::erase_if(all, [&](auto const& set) { return leaving.contains(set.get()); }); });
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
