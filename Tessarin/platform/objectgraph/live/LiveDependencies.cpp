#include "Tessarin/platform/objectgraph/live/LiveDependenciesPrivate.h"

#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/objectgraph/context/KeySetPrivate.h"
#include "Tessarin/platform/objectgraph/context/ObjectLookupPrivate.h"
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/context/RelationshipsPrivate.h"

#include <algorithm>

namespace Tessarin {

namespace {

/// The property of an entity; or else those that only entities below it have under that name.
std::vector<NSPropertyDescription const*> propertiesNamed(NSEntityDescription const& entity, std::string_view name) {
    if (auto const* property = entity.propertyNamed(name)) return {property};
    std::vector<NSPropertyDescription const*> properties;
    for (auto const* below : entity.subentities())
        for (auto const* property : propertiesNamed(*below, name)) properties.push_back(property);
    return properties;
}

} // namespace

void LiveDependencies::add(std::string_view keyPath, bool isShown) { add({}, *entity_, keyPath, isShown); }

/// A change of the links themselves is a change of both their ends, so that the first step of a path needs no watching. A step that
/// names no property is an operator, or a property of the application's own.
void LiveDependencies::add(Links const& links, NSEntityDescription const& entity, std::string_view keyPath, bool isShown) {
    auto const end = std::min(keyPath.find('.'), keyPath.size());
    auto const rest = keyPath.substr(std::min(end + 1, keyPath.size()));
    for (auto const* property : propertiesNamed(entity, keyPath.substr(0, end))) {
        if (!links.empty())
            if (auto& read = wayAlong(links, isShown).read; std::ranges::find(read, property) == read.end())
                read.push_back(property);
        auto const* relationship = property->asRelationship();
        if (!relationship || rest.empty()) continue;
        auto further = links;
        further.push_back(relationship);
        add(further, *relationship->destinationEntity(), rest, isShown);
    }
}

LiveDependencies::Way& LiveDependencies::wayAlong(Links const& links, bool isShown) {
    auto const way = std::ranges::find_if(ways_, [&](Way const& each) { return each.links == links && each.isShown == isShown; });
    if (way != ways_.end()) return *way;
    bool const leadsBack = std::ranges::all_of(links, [](auto const* link) { return link->isReciprocal(); });
    return ways_.emplace_back(Way{links, {}, isShown, leadsBack});
}

namespace {

using Objects = std::vector<Ref<NSManagedObject>>;

/// Whoever the objects lead to by one relationship.
std::vector<RecordKey> keysBehind(Objects const& objects, NSRelationshipDescription const& relationship) {
    std::vector<RecordKey> keys;
    for (auto const& object : objects) {
        if (GraphAccess::state(*object).has(ObjectState::Gone)) continue; // what is deleted and not saved still shows
        if (relationship.isToMany()) {
            auto const members = memberKeys(*object, relationship);
            keys.insert(keys.end(), members.begin(), members.end());
        } else if (auto const key = referenceOf(*object, relationship); key != 0) {
            keys.push_back(key);
        }
    }
    return keys;
}

/// The records that still lead to those that are gone as they wait to be saved: others let them go in the file alone.
void addWaitingFor(ContextState& context, ChangeSets const& sets, NSRelationshipDescription const& link, KeySet const& gone,
                   std::vector<RecordKey>& keys) {
    auto const& tree = *link.entity()->rootEntity();
    for (auto const& set : sets)
        for (auto const key : gone.keys()) {
            auto const former = key > 0 ? context.coordinator->promotions().temporaryKey(key) : 0;
            for (auto const name : {key, former})
                if (name != 0)
                    for (auto const waiting : set->keysReferring(tree, link, name)) keys.push_back(waiting);
        }
}

/// Those that lead to them as they are changed here.
void addUnsaved(ContextState& context, NSRelationshipDescription const& link, KeySet const& gone, std::vector<RecordKey>& keys) {
    auto const add = [&](auto const& objects) {
        for (auto const& object : objects) {
            bool const isOne = object->hasChanges() && object->entity().isKindOf(link.entity());
            if (isOne && gone.contains(referenceOf(*object, link))) keys.push_back(object->recordKey());
        }
    };
    if (context.changed.size() <= ChangeQuestion::few) return add(context.changed);
    add(context.values.find(context, link, gone.keys()));
    add(context.values.changedFaults());
}

/// Whoever was linked with records that are gone, and has not been told: who deleted them did not know of the links.
std::vector<RecordKey> keysBehindGone(ContextState& context, std::span<RecordChange const* const> gone,
                                      NSRelationshipDescription const& link) {
    if (gone.empty()) return {};
    auto const& inverse = *link.inverseRelationship();
    std::vector<RecordKey> keys;
    KeySet goneKeys;
    RecordReader const reader(context);
    for (auto const* change : gone) {
        goneKeys.add(change->key);
        if (!inverse.isToMany()) continue;
        auto const members = reader.members(inverse, *change->entity, change->key).keys;
        keys.insert(keys.end(), members.begin(), members.end());
    }
    if (!link.isToMany()) {
        addWaitingFor(context, reader.sets(), link, goneKeys, keys);
        addUnsaved(context, link, goneKeys, keys);
        return keys;
    }
    auto const led = [&](NSManagedObject& object) {
        auto const& extras = GraphAccess::state(object).extras;
        auto const* toMany = extras ? extras->find(link.index()) : nullptr;
        return toMany && std::ranges::any_of(toMany->added.keys(), [&](RecordKey key) { return goneKeys.contains(key); });
    };
    for (auto const& object : context.changed)
        if (object->entity().isKindOf(inverse.destinationEntity()) && led(*object)) keys.push_back(object->recordKey());
    return keys;
}

} // namespace

void LiveDependencies::walkBack(ContextState& context, Way const& way, std::vector<RecordKey> keys, Affected affected) {
    for (std::size_t at = way.links.size() - 1; at-- > 0;)
        keys = keysBehind(objectsWithKeys(context, *way.links[at]->destinationEntity(), keys),
                          *way.links[at]->inverseRelationship());
    for (auto const key : keys) affected(key, way.isShown);
}

bool LiveDependencies::follow(ContextState& context, std::span<ContextTurn::Record const> records, Affected affected) const {
    return std::ranges::all_of(ways_, [&](Way const& way) {
        List ends;
        std::vector<RecordKey> behind;
        for (auto const& [entity, keyThen] : records) {
            if (!entity->isKindOf(way.links.back()->destinationEntity())) continue;
            auto const key = context.link->current(keyThen);
            if (key < 0 && !context.link->find(key)) continue; // it is no more, and was never elsewhere
            if (!way.leadsBack) return false;
            auto const object = objectWithKey(context, *entity, key);
            ends.push_back(Value(object));
            auto const members = keysBehind({object}, *way.links.back()->inverseRelationship());
            behind.insert(behind.end(), members.begin(), members.end());
        }
        walkBack(context, way, std::move(behind), affected);
        for (auto const key : keysLeadingTo(context, way, std::move(ends))) affected(key, way.isShown);
        return true;
    });
}

bool LiveDependencies::reads(Way const& way, RecordChange const& change) const {
    return std::ranges::any_of(way.read, [&](NSPropertyDescription const* property) {
        auto const isOfIt = [&](RelationshipChange const& each) { return each.relationship == property; };
        if (property->asRelationship() && property->asRelationship()->isToMany())
            return std::ranges::any_of(change.relationships, isOfIt);
        if (!change.before || !change.after || property->index() >= change.entity->properties().size()) return true;
        auto const cell = change.after->layout().cellOf(property->index());
        return cell == RowLayout::noCell || !change.after->cellEquals(static_cast<std::size_t>(cell), *change.before);
    });
}

bool LiveDependencies::follow(ContextState& context, ChangeSet const& set, bool isCorrection, Affected affected) const {
    return std::ranges::all_of(ways_, [&](Way const& way) { return follow(context, way, set, isCorrection, affected); });
}

/// The records of the list whose way ends at one of those objects. They are asked for rather than walked to: what others have
/// saved may say of one end of a link what the other end, unsaved here, does not know.
std::vector<RecordKey> LiveDependencies::keysLeadingTo(ContextState& context, Way const& way, List ends) const {
    if (ends.empty()) return {};
    bool const isOverMany = std::ranges::any_of(way.links, &NSRelationshipDescription::isToMany);
    std::string path;
    for (auto const* link : way.links) path += (path.empty() ? "" : ".") + link->name();
    auto const request = make<NSFetchRequest>(entity_->name());
    request->setPredicate(NSComparisonPredicate::predicateWithLeftExpression(
        NSExpression::expressionForKeyPath(path), NSExpression::expressionForConstantValue(Value(std::move(ends))),
        NSPredicateOperatorType::In, isOverMany ? NSComparisonPredicateModifier::Any : NSComparisonPredicateModifier::Direct));
    Ref<NSError> error;
    auto const found = context.link->context()->fetchObjects(*request, error);
    if (error) throw ErrorException(error);
    return {found.keys().begin(), found.keys().end()};
}

/// What was linked with a record that is new, and not one that was deleted before, has changed itself.
bool LiveDependencies::follow(ContextState& context, Way const& way, ChangeSet const& set, bool isCorrection,
                              Affected affected) const {
    static constexpr std::size_t mostGone = 256; // looked up one by one
    using Kind = RecordChange::Kind;
    auto const& link = *way.links.back();
    std::vector<RecordChange const*> gone;
    Objects objects;
    List changed;
    for (auto const& change : set.changesOf(*link.destinationEntity()->rootEntity())) {
        bool const isBack = change.kind == Kind::Insert && change.after->version() > Row::firstVersion; // and may be linked
        bool const mayBeBack = isBack || !context.coordinator->space()->cache().find(change.key); // others may have deleted it
        bool const isUpdate = isBack || (change.kind == Kind::Update && (isCorrection || mayBeBack || reads(way, change)));
        if (!change.entity->isKindOf(link.destinationEntity()) || (!isUpdate && change.kind != Kind::Delete)) continue;
        if (!way.leadsBack || (!isUpdate && (isCorrection || gone.size() == mostGone))) return false;
        if (isUpdate)
            changed.push_back(Value(objects.emplace_back(objectWithKey(context, *change.entity, change.key))));
        else
            gone.push_back(&change);
    }
    walkBack(context, way, keysBehindGone(context, gone, link), affected);
    walkBack(context, way, keysBehind(objects, *link.inverseRelationship()), affected);
    for (auto const key : keysLeadingTo(context, way, std::move(changed))) affected(key, way.isShown);
    return true;
}

} // namespace Tessarin
