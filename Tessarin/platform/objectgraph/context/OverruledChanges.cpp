#include "Tessarin/platform/objectgraph/context/OverruledChangesPrivate.h"

#include "Tessarin/platform/foundation/notifications/NSNotificationCenter.h"
#include "Tessarin/platform/foundation/notifications/NSNotificationChannel.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"

#include <algorithm>
#include <ranges>
#include <utility>

namespace Tessarin {
namespace {

Ref<NSNotificationChannel> const& channel() {
    static auto const& shared =
        *new auto(NSNotificationCenter::defaultCenter()->channelForName(NSManagedObjectContextDidOverruleChangesNotification));
    return shared;
}

constexpr std::size_t deletion = SIZE_MAX;

/// Each value that was given up, by its cell, with the rows that have it and what there is instead; null where there is none.
using Each = FunctionRef<void(std::size_t cell, Row const* lost, Row const* won, bool isOwn)>;
void forEachOverruled(DecidedConflict const& decided, Each each) {
    auto const& [entity, key, base, wanted, stored, final] = decided.conflict;
    bool const mayLoseTheirs = !decided.hasOtherRecord;
    if (!wanted && final) each(deletion, nullptr, final.get(), true);
    if (!stored && final && mayLoseTheirs) each(deletion, nullptr, final.get(), false);
    auto const isLost = [&](std::size_t cell, RowRef const& side) {
        return side && !side->cellEquals(cell, *base) && (!final || !final->cellEquals(cell, *side));
    };
    for (std::size_t cell = 0; cell < base->layout().cells().size(); ++cell) {
        if (isLost(cell, wanted))
            each(cell, wanted.get(), final.get(), true);
        else if (mayLoseTheirs && isLost(cell, stored))
            each(cell, stored.get(), final.get(), false);
    }
}

Value shownValue(ContextState& context, Row const* row, std::size_t cell) {
    if (!row || !row->isPresent(cell)) return {};
    auto const* relationship = row->layout().cells()[cell].property->asRelationship();
    if (!relationship) return row->value(cell);
    return Value(objectWithKey(context, *relationship->destinationEntity(), row->reference(cell)));
}

/// Where it is posted: see the notification's name.
Ref<NSManagedObjectContext> posterFor(NSManagedObjectContext& saved, bool areOwn) {
    auto const& state = GraphAccess::state(saved);
    if (!areOwn && !state.parent)
        for (auto const& child : std::views::reverse(state.published.readers()))
            if (child->concurrencyType() == NSManagedObjectContextConcurrencyType::MainQueue) return child;
    return saved.self<NSManagedObjectContext>();
}

} // namespace

bool hasOverruleObservers() { return channel()->hasObservers(); }

bool isOverruled(DecidedConflict const& decided) {
    bool isSo = false;
    forEachOverruled(decided, [&](std::size_t, Row const*, Row const*, bool) { isSo = true; });
    return isSo;
}

void ContextOverruleNotification::init(Ref<NSManagedObjectContext> context, DecidedConflicts decided) {
    ContextNotification::init(NSManagedObjectContextDidOverruleChangesNotification, std::move(context));
    decided_ = std::move(decided);
}

Dictionary ContextOverruleNotification::makeUserInfo(NSManagedObjectContext& context) const {
    auto& state = GraphAccess::state(context);
    List changes;
    for (auto const& decided : decided_) {
        Value const object{objectWithKey(state, *decided.conflict.entity, decided.conflict.key)};
        auto const cells = decided.conflict.base->layout().cells();
        forEachOverruled(decided, [&](std::size_t cell, Row const* lost, Row const* won, bool isOwn) {
            Dictionary change{{NSOverruledObjectKey, object}, {NSOverruledIsOwnKey, isOwn}};
            if (cell != deletion) {
                change.set(NSOverruledAttributeKey, cells[cell].property->name());
                if (auto value = shownValue(state, lost, cell); !value.isAbsent()) change.set(NSOverruledLostValueKey, value);
                if (auto value = shownValue(state, won, cell); !value.isAbsent()) change.set(NSOverruledWonValueKey, value);
            }
            changes.push_back(std::move(change));
        });
    }
    return {{NSOverruledChangesKey, std::move(changes)}};
}

void postDidOverrule(NSManagedObjectContext& context, DecidedConflicts decided, bool areOwn) {
    std::erase_if(decided, [](auto const& each) { return !isOverruled(each); });
    if (decided.empty()) return;
    auto const poster = posterFor(context, areOwn);
    auto const notification = make<ContextOverruleNotification>(poster, std::move(decided));
    if (poster.get() == &context) return channel()->post(notification);
    poster->performBlock([notification] { channel()->post(notification); });
}

std::vector<OverruledChange> overruledChanges(NSNotification const& notification) {
    std::vector<OverruledChange> changes;
    if (notification.name() != NSManagedObjectContextDidOverruleChangesNotification) return changes;
    for (auto const& each : notification.userInfo().dictionary()[NSOverruledChangesKey].list()) {
        auto const& change = each.dictionary();
        changes.push_back({.object = change[NSOverruledObjectKey].objectAs<NSManagedObject>(),
                           .attribute = std::string{change[NSOverruledAttributeKey].text()},
                           .lost = change[NSOverruledLostValueKey],
                           .won = change[NSOverruledWonValueKey],
                           .isOwn = change[NSOverruledIsOwnKey].boolean()});
    }
    return changes;
}

} // namespace Tessarin
