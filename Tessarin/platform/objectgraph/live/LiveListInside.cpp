#include "Tessarin/platform/objectgraph/live/LiveListInsidePrivate.h"

#include <algorithm>
#include <chrono>

namespace Tessarin {
namespace {

constexpr std::size_t portion = 256; // records that are read together
constexpr auto longestTurn = std::chrono::milliseconds(2);

} // namespace

LiveList::Inside::Inside(ContextLinkRef contextLink, LiveQuestion asked, LiveDependencies ways, bool isSectioned)
    : link(std::move(contextLink)),
      question(std::move(asked)),
      dependencies(std::move(ways)),
      order(question.descriptors()),
      hasSections(isSectioned) {}

void LiveList::Inside::fetchAll() {
    auto const context = link->context();
    if (!context) return;
    error = question.all(*context, order, [&](RecordKey key, List& values) {
        if (hasSections && (sections.all().empty() || !order.isSameSection(sections.all().back().name, values.front())))
            sections.insert(sections.all().size(), values.front());
        if (hasSections) sections.add(sections.all().size() - 1, 1);
        order.append(key, values);
        noteTemporary(key);
    });
    if (!error) return;
    order.clear();
    sections.clear();
    temporaries_.clear();
}

void LiveList::Inside::follow(ContextTurn const& turn) {
    auto* context = link->contextState();
    if (!context) return;
    gather(*context, turn);
    work(false);
}

bool LiveList::Inside::isOfList(NSEntityDescription const& entity) const { return entity.isKindOf(&question.entity()); }

void LiveList::Inside::gather(ContextState& context, ContextTurn const& turn) try {
    noteFollowed(!turn.isEverything && !error);
    hasNewKeys_ = hasNewKeys_ || turn.hasNewKeys;
    for (auto const& [entity, before, now] : turn.newKeys) newKeys_.emplace(before, now);
    auto const affected = [this](RecordKey key, bool isShown) { touch(key, isShown); };
    auto records = turn.records;
    for (auto& [entity, key] : records) {
        key = current(key);
        if (isOfList(*entity)) touch(key, true);
        noteMembers(key);
    }
    noteFollowed(dependencies.follow(context, records, affected));
    for (auto const& arrival : turn.sets) gather(context, arrival);
} catch (ErrorException const& failure) { // what a path leads over cannot be read
    error = failure.error();
    mustFetch_ = true;
}

void LiveList::Inside::gather(ContextState& context, ContextTurn::Arrival const& arrival) {
    if (auto const& owner = question.owner(); owner && arrival.set->find(owner->entity(), owner->recordKey())) mustFetch_ = true;
    if (!arrival.set->changesOf(*question.entity().rootEntity()).empty()) sets_.push_back({arrival.set, 0});
    noteFollowed(dependencies.follow(context, *arrival.set, arrival.isCorrection,
                                     [this](RecordKey key, bool isShown) { touch(key, isShown); }));
}

RecordKey LiveList::Inside::current(RecordKey key) const {
    if (key >= 0) return key;
    auto const own = newKeys_.find(key);
    return own != newKeys_.end() ? own->second : link->current(key);
}

/// Each record once, by the key that it has now.
std::vector<LiveList::Inside::Touched> LiveList::Inside::nextPortion(std::size_t most) {
    std::vector<Touched> records;
    while (!touched_.empty() && records.size() < most) {
        records.push_back(touched_.front());
        touched_.pop_front();
    }
    while (!sets_.empty() && records.size() < most) {
        auto& [set, next] = sets_.front();
        auto const changes = set->changesOf(*question.entity().rootEntity());
        for (; next < changes.size() && records.size() < most; ++next)
            if (isOfList(*changes[next].entity)) records.push_back({changes[next].key, true});
        if (next == changes.size()) sets_.pop_front();
    }
    for (auto& record : records) record.key = current(record.key);
    std::ranges::sort(
        records, [](Touched const& a, Touched const& b) { return a.key != b.key ? a.key < b.key : a.isShown && !b.isShown; });
    auto const repeated = std::ranges::unique(records, {}, &Touched::key);
    records.erase(repeated.begin(), repeated.end());
    return records;
}

void LiveList::Inside::takeNewKeys(std::vector<LiveChange>& steps) {
    LiveOutcome outcome(order, hasSections ? &sections : nullptr);
    temporaries_.translate([&](RecordKey key) -> RecordKey {
        if (!order.contains(key)) return 0;
        auto const now = current(key);
        if (now == key) return key;
        outcome.noteNewKey(key, now);
        return 0;
    });
    std::ranges::move(outcome.apply(), std::back_inserter(steps));
}

void LiveList::Inside::workPortion(ContextState& context, std::vector<LiveChange>& steps) {
    auto const records = nextPortion(portion);
    std::vector<RecordKey> keys;
    for (auto const& record : records) keys.push_back(record.key);
    LiveOutcome outcome(order, hasSections ? &sections : nullptr);
    question.ask(context, order, keys, [&](RecordKey key, List* values) {
        auto const record = std::ranges::lower_bound(records, key, {}, &Touched::key);
        outcome.note(key, values, record->isShown);
        if (values) noteTemporary(key);
    });
    std::ranges::move(outcome.apply(), std::back_inserter(steps));
}

void LiveList::Inside::fetchAgain(ContextState& context, std::vector<LiveChange>& steps) {
    KeySet shown, here;
    while (!touched_.empty() || !sets_.empty())
        for (auto const& record : nextPortion(portion))
            if (record.isShown) shown.add(record.key);
    LiveOutcome outcome(order, hasSections ? &sections : nullptr);
    std::vector<std::pair<RecordKey, List>> results;
    error = question.all(*context.link->context(), order,
                         [&](RecordKey key, List& values) { results.emplace_back(key, std::move(values)); });
    if (error) return;
    for (auto& [key, values] : results) {
        here.append(key);
        outcome.note(key, &values, showsAllAnew_ || shown.contains(key));
        noteTemporary(key);
    }
    for (std::size_t rank = 0; rank < order.size(); ++rank)
        if (auto const key = order.keyAt(rank); !here.contains(key)) outcome.note(key, nullptr, false);
    mustFetch_ = showsAllAnew_ = false;
    std::ranges::move(outcome.apply(), std::back_inserter(steps));
}

void LiveList::Inside::work(bool isWhole) try {
    auto* context = link->contextState();
    if (!context || isWorking_) return;
    std::vector<LiveChange> steps;
    {
        Working const working(isWorking_);
        auto const end = std::chrono::steady_clock::now() + longestTurn;
        if (std::exchange(hasNewKeys_, false)) {
            takeNewKeys(steps);
            mustFetch_ = mustFetch_ || question.isPart(); // others may come before those that had temporary keys
        }
        if (hasMore() && (mustFetch_ || question.isPart())) fetchAgain(*context, steps);
        bool mayGoOn = !error;
        while (hasMore() && mayGoOn) {
            workPortion(*context, steps);
            mayGoOn = isWhole || std::chrono::steady_clock::now() < end;
        }
    }
    if (hasMore() && !error)
        goOnLater();
    else if (!hasMore())
        newKeys_.clear();
    tell(std::move(steps));
} catch (ErrorException const& failure) { // what is not read yet is fetched with the next change
    error = failure.error();
    mustFetch_ = true;
}

void LiveList::Inside::goOnLater() {
    auto const context = link->context();
    if (!context || std::exchange(isScheduled_, true)) return;
    context->performBlock([weak = weak_from_this()] {
        auto const living = weak.lock();
        if (!living) return;
        living->isScheduled_ = false;
        living->work(false);
    });
}

void LiveList::Inside::tell(std::vector<LiveChange> steps) {
    if (steps.empty()) return;
    whole.front().count = order.size();
    std::erase_if(observers, [](auto const& each) { return each.expired(); });
    LiveChanges const changes(std::move(steps));
    for (auto const& each : std::vector(observers)) // who is told may come and go
        if (auto const told = each.lock()) (*told)(changes);
}

} // namespace Tessarin
