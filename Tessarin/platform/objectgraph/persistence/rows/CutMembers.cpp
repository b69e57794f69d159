#include "Tessarin/platform/objectgraph/persistence/rows/CutMembersPrivate.h"

#include <algorithm>
#include <map>
#include <utility>

namespace Tessarin {
namespace {

using Kind = RecordChange::Kind;
using IsMissing = FunctionRef<bool(NSEntityDescription const& entity, RecordKey key)>;

/// Those of the added members that are missing, as removals.
std::vector<RelationshipChange> cutOf(RecordChange const& change, IsMissing isMissing) {
    std::vector<RelationshipChange> cut;
    for (auto const& each : change.relationships) {
        RelationshipChange made{.relationship = each.relationship, .added = {}, .removed = {}, .order = {}};
        std::ranges::copy_if(each.added, std::back_inserter(made.removed),
                             [&](RecordKey key) { return isMissing(*each.relationship->destinationEntity(), key); });
        if (!made.removed.empty()) cut.push_back(std::move(made));
    }
    return cut;
}

} // namespace

void addCutMembers(std::span<Ref<ChangeSet const> const> sets, IsMissing isMissing, SaveOutcome& outcome) {
    std::map<RecordKey, RecordChange> owners;
    for (auto const& set : sets)
        for (auto const& change : set->changes()) {
            if (change.kind == Kind::Delete || change.relationships.empty()) continue;
            auto cut = cutOf(change, isMissing);
            if (cut.empty() || isMissing(*change.entity, change.key)) continue;
            auto& owner = owners[change.key];
            owner.kind = Kind::Update;
            owner.changesNoLinks = true; // of other records
            owner.key = change.key;
            owner.entity = change.entity;
            owner.before = owner.after = change.after;
            std::ranges::move(cut, std::back_inserter(owner.relationships));
        }
    for (auto& correction : outcome.corrected)
        if (auto const owner = owners.extract(correction.key); !owner.empty() && correction.kind == Kind::Update)
            correction.relationships = std::move(owner.mapped().relationships);
    for (auto& [key, owner] : owners) outcome.corrected.push_back(std::move(owner));
}

} // namespace Tessarin
