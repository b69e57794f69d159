#include "Tessarin/platform/objectgraph/persistence/rows/ChangeIndexPrivate.h"

#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ValueHashPrivate.h"

#include <algorithm>

// A change set is immutable and shared by threads, but for this: the order by an attribute is made by whoever asks first, with
// `mutex_` held, so that nobody makes it twice. What it made is looked at without the mutex, for it is never changed or removed
// again, and the nodes of the maps stay where they are; taking the mutex to find it orders its making before the look.
// `changes` is the set's own list, constant since its construction, and rows hold their layouts through the set's space.
namespace Tessarin {

ChangeIndex::Entries ChangeIndex::sorted(std::span<RecordChange const> changes, NSPropertyDescription const& property) {
    Entries entries;
    auto const* attribute = property.asAttribute();
    bool const isText = attribute && attribute->attributeType() == NSAttributeType::String;
    for (std::uint32_t at = 0; at < changes.size(); ++at) {
        auto const& [entity, row] = std::tie(changes[at].entity, changes[at].after);
        if (!row || entity->properties().size() <= property.index() || entity->properties()[property.index()] != &property)
            continue;
        auto const cell = row->layout().cellOf(property.index());
        if (cell == RowLayout::noCell || !row->isPresent(static_cast<std::size_t>(cell))) continue;
        entries.push_back({isText ? valueHash(row->text(static_cast<std::size_t>(cell)))
                                  : valueHash(row->integer(static_cast<std::size_t>(cell))),
                           at});
    }
    std::ranges::sort(entries);
    return entries;
}

namespace {

std::optional<std::uint64_t> hashOf(NSAttributeDescription const& attribute, Value const& value) {
    return attribute.isTransient() ? std::nullopt : valueHash(value, attribute.attributeType());
}

std::vector<std::uint32_t> placesOf(auto const& entries) {
    std::vector<std::uint32_t> places;
    for (auto const& entry : entries) places.push_back(entry.at);
    return places;
}

} // namespace

std::optional<std::vector<std::uint32_t>> ChangeIndex::find(std::span<RecordChange const> changes,
                                                            NSAttributeDescription const& attribute, Value const& value) const {
    auto const hash = hashOf(attribute, value);
    if (!hash) return {};
    return placesOf(entriesWith(changes, attribute, *hash));
}

std::size_t ChangeIndex::count(std::span<RecordChange const> changes, NSAttributeDescription const& attribute,
                               Value const& value) const {
    auto const hash = hashOf(attribute, value);
    return hash ? entriesWith(changes, attribute, *hash).size() : 0;
}

std::vector<std::uint32_t> ChangeIndex::find(std::span<RecordChange const> changes, NSRelationshipDescription const& relationship,
                                             RecordKey key) const {
    return placesOf(entriesWith(changes, relationship, valueHash(key)));
}

std::size_t ChangeIndex::count(std::span<RecordChange const> changes, NSRelationshipDescription const& relationship,
                               RecordKey key) const {
    return entriesWith(changes, relationship, valueHash(key)).size();
}

std::span<ChangeIndex::Entry const> ChangeIndex::entriesWith(std::span<RecordChange const> changes,
                                                             NSPropertyDescription const& property, std::uint64_t hash) const {
    return std::ranges::equal_range(entriesOf(changes, property), hash, {}, &Entry::hash);
}

ChangeIndex::Entries const& ChangeIndex::entriesOf(std::span<RecordChange const> changes,
                                                   NSPropertyDescription const& property) const {
    std::lock_guard const hold(mutex_);
    auto [place, isNew] = entries_.try_emplace(&property);
    if (isNew) place->second = sorted(changes, property);
    return place->second;
}

bool ChangeIndex::knows(NSPropertyDescription const& property) const {
    std::lock_guard const hold(mutex_);
    return entries_.contains(&property);
}

std::span<std::uint32_t const> ChangeIndex::find(std::span<RecordChange const> changes, UniqueConstraint const& constraint,
                                                 std::string const& values) const {
    Holders const* holders = nullptr;
    {
        std::lock_guard const hold(mutex_);
        auto [place, isNew] = unique_.try_emplace(&constraint);
        for (std::uint32_t at = 0; isNew && at < changes.size(); ++at)
            if (auto const& [entity, row] = std::tie(changes[at].entity, changes[at].after);
                row && entity->isKindOf(constraint.entity))
                if (auto taken = constraint.valuesOf(*row)) place->second[std::move(*taken)].push_back(at);
        holders = &place->second;
    }
    auto const found = holders->find(values);
    return found == holders->end() ? std::span<std::uint32_t const>() : found->second;
}

} // namespace Tessarin
