#include "Tessarin/platform/objectgraph/live/LiveQuestionPrivate.h"

#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"
#include "Tessarin/platform/objectgraph/live/MemberPositionsPrivate.h"

#include <algorithm>

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

} // namespace

LiveQuestion::LiveQuestion(Ref<NSFetchRequest> request, NSEntityDescription const& entity, std::string_view sectionKeyPath)
    : request_(copyOf(*request, sectionKeyPath)), entity_(&entity) {}

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

bool LiveQuestion::belongs(NSManagedObject& object) const {
    if (object.isDeleted() || GraphAccess::state(object).has(ObjectState::Gone)) return false;
    bool const isWanted = request_->includesSubentities() ? object.entity().isKindOf(entity_) : &object.entity() == entity_;
    if (!isWanted) return false;
    return !request_->predicate() || request_->predicate()->evaluateWithObject(Value(object.self<NSManagedObject>()));
}

Ref<NSError> LiveQuestion::all(NSManagedObjectContext& context, ResultOrder& now, Taker take) const {
    if (owner_) return allMembers(now, take);
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
    auto const tell = [&](NSManagedObject& object) {
        if (!belongs(object)) return answer(object.recordKey(), nullptr);
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
