#include "Tessarin/platform/objectgraph/live/LiveQuestionPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/live/MemberPositionsPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <algorithm>
#include <optional>

namespace Tessarin {
namespace {

/// A request of one's own: the application's may be changed later.
Ref<NSFetchRequest> copyOf(NSFetchRequest const& request, std::string_view sectionKeyPath) {
    auto copy = make<NSFetchRequest>(request.entityName());
    copy->setPredicate(request.predicate());
    copy->setFetchLimit(request.fetchLimit());
    copy->setFetchOffset(request.fetchOffset());
    copy->setIncludesSubentities(request.includesSubentities());
    auto descriptors = request.sortDescriptors();
    if (!sectionKeyPath.empty() && (descriptors.empty() || descriptors.front()->key() != sectionKeyPath))
        descriptors.insert(descriptors.begin(), NSSortDescriptor::sortDescriptorWithKey(sectionKeyPath));
    copy->setSortDescriptors(std::move(descriptors));
    return copy;
}

bool isOverMany(std::string_view path, NSEntityDescription const& from) {
    auto const* entity = &from;
    while (!path.empty()) {
        auto const end = std::min(path.find('.'), path.size());
        auto const* property = entity->propertyNamed(path.substr(0, end));
        auto const* relationship = property ? property->asRelationship() : nullptr;
        if (!relationship) return false;
        if (relationship->isToMany()) return true;
        entity = relationship->destinationEntity();
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return false;
}

} // namespace

LiveQuestion::LiveQuestion(Ref<NSFetchRequest> request, NSEntityDescription const& entity, std::string_view sectionKeyPath)
    : request_(copyOf(*request, sectionKeyPath)), entity_(&entity) {
    if (!request_->predicate()) return;
    auto const paths = request_->predicate()->keyPaths();
    leadsOverMany_ = std::ranges::any_of(paths, [&](std::string const& path) { return isOverMany(path, entity); });
}

/// Sorted by positions of their own, which no record has.
LiveQuestion::LiveQuestion(Ref<NSManagedObject> owner, NSRelationshipDescription const& relationship)
    : request_(make<NSFetchRequest>(relationship.destinationEntity()->name())),
      entity_(relationship.destinationEntity()),
      owner_(std::move(owner)),
      relationship_(&relationship) {
    request_->setSortDescriptors({NSSortDescriptor::sortDescriptorWithKey("position")});
}

Ref<NSError> LiveQuestion::allMembers(ResultOrder& now, Taker take) const try {
    bool const isGone = owner_->isDeleted() || GraphAccess::state(*owner_).has(ObjectState::Gone);
    auto const members = isGone ? std::span<RecordKey const>() : memberKeys(*owner_, *relationship_);
    auto positions = positionsOf(members, now);
    if (!positions) { // the same order, with other numbers
        std::vector<RecordKey> keys;
        for (std::size_t rank = 0; rank < now.size(); ++rank) keys.push_back(now.keyAt(rank));
        now.clear();
        auto const fresh = *positionsOf(keys, now);
        for (std::size_t at = 0; at < keys.size(); ++at) now.append(keys[at], List{Value(fresh[at])});
        positions = positionsOf(members, now);
    }
    for (std::size_t at = 0; at < members.size(); ++at) {
        List values{Value((*positions)[at])};
        take(members[at], values);
    }
    return nullptr;
} catch (ErrorException const& failure) {
    return failure.error();
}

List LiveQuestion::valuesOf(NSManagedObject& object) const {
    List values;
    values.reserve(descriptors().size());
    Value const from(object.self<NSManagedObject>());
    for (auto const& descriptor : descriptors()) values.push_back(descriptor->keyPath().valueFrom(from));
    return values;
}

/// Which of those records fulfil the predicate. Members of a to-many that an object has read may be older than what others have
/// stored; a fetch asks where they are kept.
KeySet LiveQuestion::fitting(ContextState& context, std::span<RecordKey const> keys) const {
    std::vector<RecordKey> existing;
    for (auto const key : keys)
        if (key > 0 || context.link->find(key)) existing.push_back(key);
    List among;
    for (auto const& object : objectsWithKeys(context, *entity_, existing)) among.push_back(Value(object));
    auto const request = make<NSFetchRequest>(entity_->name());
    request->setPredicate(NSCompoundPredicate::andPredicateWithSubpredicates(
        {NSPredicate::predicateWithFormat("SELF IN %@", Value(std::move(among))), request_->predicate()}));
    Ref<NSError> error;
    auto const found = context.link->context()->fetchObjects(*request, error);
    if (error) throw ErrorException(error);
    KeySet fitting;
    for (auto const key : found.keys()) fitting.add(key);
    return fitting;
}

bool LiveQuestion::belongs(NSManagedObject& object, KeySet const* fitting) const {
    if (object.isDeleted() || GraphAccess::state(object).has(ObjectState::Gone)) return false;
    bool const isWanted = request_->includesSubentities() ? object.entity().isKindOf(entity_) : &object.entity() == entity_;
    if (!isWanted) return false;
    if (fitting) return fitting->contains(object.recordKey());
    return !request_->predicate() || request_->predicate()->evaluateWithObject(Value(object.self<NSManagedObject>()));
}

Ref<NSError> LiveQuestion::all(NSManagedObjectContext& context, ResultOrder& now, Taker take) const {
    if (owner_) return allMembers(now, take);
    if (asksForRank(descriptors()))
        return storeError(StoreErrorCode::UnknownEntity,
                          "A live list has no order by rank: with each change all ranks are others.");
    Ref<NSError> error;
    if (descriptors().empty()) {
        List none;
        auto const list = context.fetchObjects(*request_, error);
        for (auto const key : list.keys()) take(key, none);
        return error;
    }
    context.executeFetchRequest(*request_, error, [&](std::span<Ref<NSManagedObject>> run, std::size_t) {
        for (auto const& object : run) {
            auto values = valuesOf(*object);
            take(object->recordKey(), values);
        }
    });
    return error;
}

void LiveQuestion::ask(ContextState& context, ResultOrder const& now, std::span<RecordKey const> keys, Answer answer) const {
    if (owner_) { // who is a member is the owner's matter
        for (auto const key : keys) {
            auto const known = now.contains(key) ? now.valuesOf(key) : ResultOrder::Values();
            List values(known.begin(), known.end());
            answer(key, known.empty() ? nullptr : &values);
        }
        return;
    }
    auto const fits = leadsOverMany_ ? std::optional(fitting(context, keys)) : std::nullopt;
    auto const tell = [&](NSManagedObject& object) {
        if (!belongs(object, fits ? &*fits : nullptr)) return answer(object.recordKey(), nullptr);
        auto values = valuesOf(object);
        answer(object.recordKey(), &values);
    };
    std::vector<RecordKey> unread;
    for (auto const key : keys) {
        auto const living = context.link->find(key);
        bool const isRead = living && (living->isInserted() || GraphAccess::state(*living).row);
        if (isRead && living->hasChanges()) // others show what is stored, or on its way there
            tell(*living);
        else
            unread.push_back(key);
    }
    if (unread.empty()) return;
    std::vector<RowRef> rows;
    RecordReader(context).rows(*entity_, unread, [&](RowRef row) { rows.push_back(std::move(row)); });
    KeySet found;
    std::vector<Ref<NSManagedObject>> read; // held, so that what they lead to is read together
    objectsWithRows(context, *entity_, rows,
                    [&](std::span<Ref<NSManagedObject>> run) { read.insert(read.end(), run.begin(), run.end()); });
    for (auto const& object : read) {
        found.add(object->recordKey());
        tell(*object);
    }
    for (auto const key : unread)
        if (!found.contains(key)) answer(key, nullptr);
}

} // namespace Tessarin
