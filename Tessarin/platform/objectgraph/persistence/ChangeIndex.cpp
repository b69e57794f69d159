#include "Tessarin/platform/objectgraph/persistence/ChangeIndex.h"

#include "Tessarin/platform/objectgraph/persistence/ChangeSet.h"

#include <algorithm>

namespace Tessarin {
namespace {

bool isWhole(NSAttributeType type) {
    return type == NSAttributeType::Integer16 || type == NSAttributeType::Integer32 || type == NSAttributeType::Integer64;
}

std::uint64_t hashOf(std::string_view text) { return std::hash<std::string_view>{}(text); }
std::uint64_t hashOf(std::int64_t number) { return std::hash<std::int64_t>{}(number); }

/// Absent for a value that cannot be looked up among values of that type.
std::optional<std::uint64_t> hashOf(Value const& value, NSAttributeType type) {
    if (type == NSAttributeType::String && value.kind() == Value::Kind::Text) return hashOf(value.text());
    if (isWhole(type) && value.kind() == Value::Kind::Integer) return hashOf(value.integer());
    return {};
}

} // namespace

ChangeIndex::Entries ChangeIndex::sorted(std::span<RecordChange const> changes, NSAttributeDescription const& attribute) {
    Entries entries;
    bool const isText = attribute.attributeType() == NSAttributeType::String;
    for (std::uint32_t at = 0; at < changes.size(); ++at) {
        auto const& [entity, row] = std::tie(changes[at].entity, changes[at].after);
        if (!row || entity->properties().size() <= attribute.index() || entity->properties()[attribute.index()] != &attribute) continue;
        auto const cell = row->layout().cellOf(attribute.index());
        if (cell == RowLayout::noCell || !row->isPresent(static_cast<std::size_t>(cell))) continue;
        entries.push_back({isText ? hashOf(row->text(static_cast<std::size_t>(cell))) : hashOf(row->integer(static_cast<std::size_t>(cell))), at});
    }
    std::ranges::sort(entries);
    return entries;
}

std::optional<std::vector<std::uint32_t>> ChangeIndex::find(std::span<RecordChange const> changes, NSAttributeDescription const& attribute,
                                                            Value const& value) const {
    auto const hash = attribute.isTransient() ? std::nullopt : hashOf(value, attribute.attributeType());
    if (!hash) return {};
    Entries const* entries = nullptr;
    {
        std::lock_guard const hold(mutex_);
        auto [place, isNew] = entries_.try_emplace(&attribute);
        if (isNew) place->second = sorted(changes, attribute);
        entries = &place->second;
    }
    std::vector<std::uint32_t> found;
    auto const range = std::ranges::equal_range(*entries, *hash, {}, &Entry::hash);
    for (auto const& entry : range) found.push_back(entry.at);
    return found;
}

} // namespace Tessarin
