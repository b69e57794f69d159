#include "Tessarin/platform/objectgraph/context/ValuesInMemoryPrivate.h"

#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueHashPrivate.h"

#include <algorithm>
#include <iterator>

namespace Tessarin {
namespace {

/// Of the value that the object shows now; absent when the object does not have the attribute, or no value.
std::optional<std::uint64_t> shownHash(ObjectState& state, NSAttributeDescription const& attribute) {
    auto const& properties = state.layout->entity().properties();
    if (properties.size() <= attribute.index() || properties[attribute.index()] != &attribute) return {};
    if (auto const* value = state.extras ? state.extras->value(attribute.index()) : nullptr)
        return valueHash(*value, attribute.attributeType());
    auto const cell = state.layout->cellOf(attribute.index());
    if (!state.row || cell == RowLayout::noCell) return {};
    return valueHash(state.row->value(static_cast<std::size_t>(cell)), attribute.attributeType());
}

} // namespace

std::optional<std::vector<Ref<NSManagedObject>>>
ValuesInMemory::find(ContextState const& context, NSAttributeDescription const& attribute, Value const& value) {
    auto const hash = valueHash(value, attribute.attributeType());
    if (!hash) return {};
    auto& [entries, atStart, isKnown] = entries_[&attribute];
    if (!isKnown || entries.size() > 4 * context.link->count() + 64) { // most are out of date
        entries.clear();
        for (auto const& object : context.link->all())
            if (auto const shown = object->isFault() ? std::nullopt : shownHash(GraphAccess::state(*object), attribute))
                entries.emplace(*shown, object);
        isKnown = true;
        atStart = entries.size();
    }
    std::vector<Ref<NSManagedObject>> found;
    for (auto [at, end] = entries.equal_range(*hash); at != end;) {
        auto object = at->second.lock();
        bool const isUpToDate = object && shownHash(GraphAccess::state(*object), attribute) == hash;
        if (isUpToDate) found.push_back(std::move(object));
        at = isUpToDate ? std::next(at) : entries.erase(at);
    }
    std::ranges::sort(found, {},
                      [](auto const& object) { return object->recordKey(); }); // one that had the value twice is entered twice
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
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

void ValuesInMemory::enter(NSManagedObject& object, NSAttributeDescription const& attribute, Entries& entries) {
    auto const hash = shownHash(GraphAccess::state(object), attribute);
    if (!hash || !entries.isKnown) return;
    entries.byHash.emplace(*hash, object.self<NSManagedObject>());
    if (entries.byHash.size() <= 4 * entries.atStart + 4096) return;
    entries = {}; // nobody has asked for long: made anew when somebody does
}

} // namespace Tessarin
