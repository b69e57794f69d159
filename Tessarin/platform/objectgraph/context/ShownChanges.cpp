// What is shown grows by what was changed since, so that a block costs its own changes and not all that is pending. A record that
// changes again is shown by a change on top of the one before; where no change can say that, everything is shown anew.
#include "Tessarin/platform/objectgraph/context/ShownChangesPrivate.h"

#include "Tessarin/platform/objectgraph/context/ChangePackerPrivate.h"

#include <algorithm>
#include <unordered_map>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;
using Links = std::vector<Unshown::Link const*>;

/// The members that came and went; who did both is where it ended.
RelationshipChange packed(std::span<Unshown::Link const* const> links, NSRelationshipDescription const& relationship,
                          ChangePacker const& packer) {
    KeySet added, removed;
    for (auto const* link : links) {
        if (link->relationship != &relationship) continue;
        auto const key = packer.current(link->member);
        if (key == 0) continue;
        (link->isMember ? removed : added).remove(key);
        (link->isMember ? added : removed).add(key);
    }
    RelationshipChange change{.relationship = &relationship, .added = {}, .removed = {}, .order = {}};
    change.added.assign(added.keys().begin(), added.keys().end());
    change.removed.assign(removed.keys().begin(), removed.keys().end());
    return change;
}

class Showing {
public:
    explicit Showing(ContextState& context)
        : context_(context), packer_(context, ChangePacker::Purpose::Show), shown_(*context.published.unsaved()) {}

    /// False where what is shown cannot be kept.
    bool add(Unshown const& unshown) {
        std::unordered_map<NSManagedObject const*, Links> links;
        for (auto const& link : unshown.links) links[link.owner].push_back(&link);
        for (auto const& object : unshown.objects) {
            auto const found = links.find(object.get());
            if (!add(*object, found == links.end() ? Links() : found->second)) return false;
        }
        if (changes_.empty()) return true;
        addFolded(shown_, std::make_shared<ChangeSet const>(context_.coordinator->space(), std::move(changes_)));
        context_.published.setUnsaved(std::move(shown_));
        return true;
    }

private:
    bool add(NSManagedObject& object, Links const& links) {
        auto& state = GraphAccess::state(object);
        bool const isChanged = state.has(ObjectState::Changed);
        auto const shown = rowChangeIn(shown_, object.entity(), state.key);
        if (!shown.isThere) {
            auto change = isChanged ? packer_.packed(object, true) : std::nullopt;
            if (change) changes_.push_back(std::move(*change));
            return true;
        }
        if (!isChanged) return takeBack(object, shown);
        auto now = *packer_.packed(object, false);
        if (now.kind != Kind::Delete && now.kind != shown.kind) return false; // nothing brings back what is shown as deleted
        if (now.kind == Kind::Update && shown.after && now.before != shown.before) return false;
        now.kind = now.kind == Kind::Delete ? Kind::Delete : Kind::Update;
        if (shown.after) now.before = shown.after;
        if (now.kind != Kind::Delete) addRelationships(object, links, now);
        changes_.push_back(std::move(now));
        return true;
    }

    /// The object is as it was read, or gone with its insertion.
    bool takeBack(NSManagedObject const& object, RowChange const& shown) {
        bool const wasInserted = shown.kind == Kind::Insert;
        if (!wasInserted && (shown.kind == Kind::Delete || shown.changesRelationships)) return false;
        changes_.push_back({.kind = wasInserted ? Kind::Delete : Kind::Update,
                            .key = object.recordKey(),
                            .entity = &object.entity(),
                            .before = shown.after,
                            .after = shown.before,
                            .relationships = {}});
        return true;
    }

    void addRelationships(NSManagedObject& object, Links const& links, RecordChange& change) {
        for (auto const* link : links) {
            bool const isPacked = std::ranges::find(change.relationships, link->relationship,
                                                    &RelationshipChange::relationship) != change.relationships.end();
            if (isPacked || link->relationship->isTransient()) continue;
            auto& added = change.relationships.emplace_back(packed(links, *link->relationship, packer_));
            if (link->relationship->isOrdered()) added.order = packer_.order(object, *link->relationship);
        }
    }

    ContextState& context_;
    ChangePacker packer_;
    ChangeSets shown_;
    std::vector<RecordChange> changes_;
};

void showAll(ContextState& context) {
    auto const all = ChangePacker(context, ChangePacker::Purpose::Show).pack();
    context.published.setUnsaved(all ? ChangeSets{all} : ChangeSets());
    for (auto const& object : context.changed)
        if (object->recordKey() < 0) GraphAccess::state(*object).set(ObjectState::Published);
}

} // namespace

void showUnsaved(ContextState& context) {
    if (!context.link) return;
    bool const hasChildren = context.children.load(std::memory_order_relaxed) != 0;
    bool const wasShowing = std::exchange(context.isShowingUnsaved, hasChildren);
    bool const mustShowAnew = std::exchange(context.mustShowAnew, false);
    auto const unshown = std::exchange(context.unshown, {});
    for (auto const& object : unshown.objects) GraphAccess::state(*object).clear(ObjectState::Unshown);
    if (!hasChildren) {
        if (wasShowing) context.published.setUnsaved({});
        return;
    }
    if (!wasShowing || mustShowAnew || !Showing(context).add(unshown)) return showAll(context);
    for (auto const& object : unshown.objects) {
        auto& state = GraphAccess::state(*object);
        if (state.key < 0 && state.has(ObjectState::Changed)) state.set(ObjectState::Published);
    }
}

void noteUnshown(ContextState& context, NSManagedObject& object) {
    if (context.touched) context.touched->push_back(object.self<NSManagedObject>());
    auto& state = GraphAccess::state(object);
    if (!context.isShowingUnsaved || state.has(ObjectState::Unshown)) return;
    state.set(ObjectState::Unshown);
    context.unshown.objects.push_back(object.self<NSManagedObject>());
}

void noteUnshownLink(NSManagedObject& owner, NSRelationshipDescription const& relationship, RecordKey member, bool isMember) {
    auto* context = GraphAccess::state(owner).link()->contextState();
    if (context && context->isShowingUnsaved) context->unshown.links.push_back({&owner, &relationship, member, isMember});
}

} // namespace Tessarin
