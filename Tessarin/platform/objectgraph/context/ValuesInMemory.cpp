#include "Tessarin/platform/objectgraph/context/ValuesInMemoryPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueHashPrivate.h"

#include <algorithm>
#include <iterator>

namespace Tessarin {
namespace {

/// Of the value that the object shows now, or the key that it leads to; absent when the object does not have the property, or no
/// value.
std::optional<std::uint64_t> shownHash(ObjectState& state, NSPropertyDescription const& property) {
    auto const& properties = state.layout->entity().properties();
    if (properties.size() <= property.index() || properties[property.index()] != &property) return {};
    auto const* attribute = property.asAttribute();
    auto const hashOf = [&](Value const& value) -> std::optional<std::uint64_t> {
        if (attribute) return valueHash(value, attribute->attributeType());
        auto const key = value.integer();
        return key == 0 ? std::nullopt : std::optional(valueHash(state.link()->current(key)));
    };
    if (auto const* value = state.extras ? state.extras->value(property.index()) : nullptr) return hashOf(*value);
    auto const cell = state.layout->cellOf(property.index());
    if (!state.row || cell == RowLayout::noCell) return {};
    auto const at = static_cast<std::size_t>(cell);
    return hashOf(attribute ? state.row->value(at) : Value(state.row->reference(at)));
}

} // namespace

ValuesInMemory::Entries& ValuesInMemory::entriesOf(ContextState const& context, NSPropertyDescription const& property) {
    auto& entries = entries_[&property];
    if (entries.isKnown && entries.byHash.size() <= 4 * context.link->count() + 64) return entries;
    entries.byHash.clear(); // most are out of date
    for (auto const& object : context.link->all())
        if (auto const shown = object->isFault() ? std::nullopt : shownHash(GraphAccess::state(*object), property))
            entries.byHash.emplace(*shown, object);
    entries.isKnown = true;
    entries.atStart = entries.byHash.size();
    return entries;
}

void ValuesInMemory::take(Entries& entries, NSPropertyDescription const& property, std::uint64_t hash, Objects& objects) {
    for (auto [at, end] = entries.byHash.equal_range(hash); at != end;) {
        auto object = at->second.lock();
        bool const isUpToDate = object && shownHash(GraphAccess::state(*object), property) == hash;
        if (isUpToDate) objects.push_back(std::move(object));
        at = isUpToDate ? std::next(at) : entries.byHash.erase(at);
    }
}

namespace {

/// One that had a value twice is entered twice.
void removeRepeated(std::vector<Ref<NSManagedObject>>& objects) {
    std::ranges::sort(objects, {}, [](auto const& object) { return object->recordKey(); });
    objects.erase(std::unique(objects.begin(), objects.end()), objects.end());
}

} // namespace

std::optional<std::vector<Ref<NSManagedObject>>>
ValuesInMemory::find(ContextState const& context, NSAttributeDescription const& attribute, Value const& value) {
    auto const hash = valueHash(value, attribute.attributeType());
    if (!hash) return {};
    Objects found;
    take(entriesOf(context, attribute), attribute, *hash, found);
    removeRepeated(found);
    return found;
}

std::vector<Ref<NSManagedObject>> ValuesInMemory::find(ContextState const& context, NSRelationshipDescription const& relationship,
                                                       std::span<RecordKey const> keys) {
    Objects found;
    auto& entries = entriesOf(context, relationship);
    for (auto const key : keys) {
        auto const now = context.link->current(key);
        if (now != key) noteNewKey(key, now);
        take(entries, relationship, valueHash(now), found);
    }
    removeRepeated(found);
    return found;
}

void ValuesInMemory::noteNewKey(RecordKey temporary, RecordKey permanent) {
    auto const before = valueHash(temporary), now = valueHash(permanent);
    for (auto& [property, entries] : entries_) {
        if (!property->asRelationship()) continue;
        std::vector<WeakRef<NSManagedObject>> moved;
        for (auto [at, end] = entries.byHash.equal_range(before); at != end; ++at) moved.push_back(std::move(at->second));
        entries.byHash.erase(before);
        for (auto& object : moved) entries.byHash.emplace(now, std::move(object));
    }
}

void ValuesInMemory::noteChanged(NSManagedObject& object) {
    if (object.isFault()) changedFaults_.push_back(object.self<NSManagedObject>());
    if (changedFaults_.size() > 2 * changedFaultsAtSweep_ + 1024) changedFaultsAtSweep_ = changedFaults().size();
    note(object);
}

std::vector<Ref<NSManagedObject>> ValuesInMemory::changedFaults() {
    std::vector<Ref<NSManagedObject>> faults;
    std::erase_if(changedFaults_, [&](auto const& each) {
        auto object = each.lock();
        bool const isOne = object && object->isFault() && GraphAccess::state(*object).has(ObjectState::Changed);
        if (isOne) faults.push_back(std::move(object));
        return !isOne;
    });
    return faults;
}

void ValuesInMemory::enter(NSManagedObject& object, NSPropertyDescription const& property, Entries& entries) {
    auto const hash = shownHash(GraphAccess::state(object), property);
    if (!hash || !entries.isKnown) return;
    entries.byHash.emplace(*hash, object.self<NSManagedObject>());
    if (entries.byHash.size() <= 4 * entries.atStart + 4096) return;
    entries = {}; // nobody has asked for long: made anew when somebody does
}

} // namespace Tessarin
