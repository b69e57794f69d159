#include "Tessarin/platform/objectgraph/context/TurnedRecordsPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"

#include <algorithm>

namespace Tessarin {
namespace {

using Path = std::span<std::string const>;

/// Without what does not lead to another record.
Path leading(Path path) {
    while (!path.empty() && (path.front() == "SELF" || path.front() == "self" || path.front().starts_with('@')))
        path = path.subspan(1);
    return path;
}

class TurnedRecords {
public:
    TurnedRecords(ContextState const& context, RecordReader const& reader, ChangeSets const& sets)
        : context_(context), reader_(reader), sets_(sets) {}

    /// False when the path is none of the model's, or the store cannot say who refers to a record.
    bool add(NSEntityDescription const& entity, Path path, KeySet& keys) {
        path = leading(path);
        if (path.empty()) return true;
        auto const* property = entity.propertyNamed(path.front());
        auto const* relationship = property ? property->asRelationship() : nullptr;
        if (!relationship) return property != nullptr;
        auto const rest = leading(path.subspan(1));
        if (rest.empty() && !relationship->isToMany()) return true;
        KeySet destinations;
        addChanged(*relationship->destinationEntity(), destinations);
        return add(*relationship->destinationEntity(), rest, destinations) &&
               addReferring(entity, *relationship, destinations, keys);
    }

    /// Records of which only to-many relationships changed, which leaves their rows as they are.
    void addRelated(NSEntityDescription const& entity, KeySet& keys) {
        for (auto const& set : sets_)
            if (set->changesRelationships())
                for (auto const& change : set->changesOf(*entity.rootEntity()))
                    if (!change.changesRow() && change.entity->isKindOf(&entity)) keys.add(change.key);
    }

private:
    void addChanged(NSEntityDescription const& entity, KeySet& keys) {
        if (context_.changed.countOf(entity, true) != 0)
            for (auto const& object : context_.changed)
                if (object->entity().isKindOf(&entity)) keys.add(object->recordKey());
        for (auto const& set : sets_)
            for (auto const& change : set->changesOf(*entity.rootEntity()))
                if (change.entity->isKindOf(&entity)) keys.add(change.key);
    }

    /// Records that refer to one of `destinations` in the store; who refers to it since then has changed itself.
    bool addReferring(NSEntityDescription const& entity, NSRelationshipDescription const& relationship,
                      KeySet const& destinations, KeySet& keys) {
        std::vector<RecordKey> saved;
        for (auto const key : destinations.keys())
            if (key > 0) saved.push_back(key);
        auto* store = reader_.store();
        if (saved.empty() || !store || relationship.isTransient()) return true;
        auto const* inverse = relationship.isReciprocal() ? relationship.inverseRelationship() : nullptr;
        if (!inverse || inverse->isTransient()) return addFound(*store, entity, relationship, saved, keys);
        if (inverse->isToMany()) {
            require(store->members(*inverse, saved, [&](RecordKey, RecordKey member) { keys.add(member); }));
            return true;
        }
        require(store->rows(*relationship.destinationEntity()->rootEntity(), saved, [&](RowRef const& row) {
            if (!row->entity().isKindOf(inverse->entity())) return;
            auto const& place = row->placeOfProperty(inverse->index());
            if (auto const key = place.type == CellType::Reference ? row->integer(place) : 0; key != 0) keys.add(key);
        }));
        return true;
    }

    bool addFound(NSPersistentStore& store, NSEntityDescription const& entity, NSRelationshipDescription const& relationship,
                  std::span<RecordKey const> destinations, KeySet& keys) {
        List identities;
        for (auto const key : destinations)
            identities.push_back(context_.coordinator->identities().identity(*relationship.destinationEntity(), key));
        auto const predicate = NSComparisonPredicate::predicateWithLeftExpression(
            NSExpression::expressionForKeyPath(relationship.name()),
            NSExpression::expressionForConstantValue(std::move(identities)), NSPredicateOperatorType::In,
            relationship.isToMany() ? NSComparisonPredicateModifier::Any : NSComparisonPredicateModifier::Direct);
        StoreQuery query;
        query.entity = &entity;
        query.predicate = predicate.get();
        query.wantsKeysOnly = true;
        StoreAnswer answer;
        require(store.fetch(query, answer));
        for (auto const key : answer.keys) keys.add(key);
        for (auto const& row : answer.rows) keys.add(row->key());
        return answer.complete;
    }

    static void require(Ref<NSError> const& error) {
        if (error) throw ErrorException(error);
    }

    ContextState const& context_;
    RecordReader const& reader_;
    ChangeSets const& sets_;
};

/// Whether it only compares attributes of the record with constants, as most look-ups do.
bool isOfOwnAttributes(NSPredicate const& predicate, NSEntityDescription const& entity) {
    if (auto const* compound = predicate.asCompound())
        return std::ranges::all_of(compound->subpredicates(), [&](auto const& part) { return isOfOwnAttributes(*part, entity); });
    auto const* comparison = predicate.asComparison();
    if (!comparison || comparison->rightExpression()->expressionType() != NSExpressionType::ConstantValue) return false;
    auto const& left = *comparison->leftExpression();
    if (left.expressionType() != NSExpressionType::KeyPath || left.operand()) return false;
    auto const* property = entity.propertyNamed(left.keyPath().text());
    return property && property->asAttribute();
}

} // namespace

bool addTurnedRecords(ContextState const& context, RecordReader const& reader, ChangeSets const& sets,
                      NSFetchRequest const& request, NSEntityDescription const& entity, KeySet& keys) {
    TurnedRecords records(context, reader, sets);
    bool asksForMembers = false;
    auto const add = [&](KeyPath const& path) {
        auto const components = leading(path.components());
        auto const* property = components.empty() ? nullptr : entity.propertyNamed(components.front());
        asksForMembers = asksForMembers || (property && property->asRelationship() && property->asRelationship()->isToMany());
        return records.add(entity, components, keys);
    };
    if (request.predicate() && !isOfOwnAttributes(*request.predicate(), entity))
        for (auto const& path : request.predicate()->keyPaths())
            if (!add(KeyPath(path))) return false;
    for (auto const& sort : request.sortDescriptors())
        if (!add(sort->keyPath())) return false;
    if (asksForMembers) records.addRelated(entity, keys);
    return true;
}

} // namespace Tessarin
