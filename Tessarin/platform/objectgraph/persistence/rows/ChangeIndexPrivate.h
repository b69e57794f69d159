#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/stores/RecordKey.h"
#include "Tessarin/platform/runtime/Value.h"
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace Tessarin {

class ChangeSet;
class NSAttributeDescription;
class NSPropertyDescription;
class NSRelationshipDescription;
class Row;
struct RecordChange;
struct UniqueConstraint;

/// Finds changes by the value of an attribute, or the end of a to-one relationship, after them: look-ups beside a save of many
/// records would otherwise look at every one of those. Sorted by one on the first question about it. Any thread.
class TESSARIN_API ChangeIndex {
public:
    /// The places, within the changes of one tree of entities, where the attribute has this value, and perhaps a few where it
    /// has not. Absent for types and values that are not looked up by equality; always of the same changes.
    std::optional<std::vector<std::uint32_t>> find(std::span<RecordChange const> changes, NSAttributeDescription const& attribute,
                                                   Value const& value) const;

    /// How many those are; 0 where they are absent.
    std::size_t count(std::span<RecordChange const> changes, NSAttributeDescription const& attribute, Value const& value) const;

    /// The places where a to-one relationship leads to the record of that key.
    std::vector<std::uint32_t> find(std::span<RecordChange const> changes, NSRelationshipDescription const& relationship,
                                    RecordKey key) const;
    std::size_t count(std::span<RecordChange const> changes, NSRelationshipDescription const& relationship, RecordKey key) const;

    /// The same for the values of a constraint, and exactly those.
    std::span<std::uint32_t const> find(std::span<RecordChange const> changes, UniqueConstraint const& constraint,
                                        std::string const& values) const;

    /// Ahead of whoever will ask about the attribute or the to-one relationship.
    void prepare(std::span<RecordChange const> changes, NSPropertyDescription const& property) const {
        entriesOf(changes, property);
    }

    bool knows(NSPropertyDescription const& property) const;

private:
    using Holders = std::unordered_map<std::string, std::vector<std::uint32_t>>;
    struct Entry {
        std::uint64_t hash;
        std::uint32_t at;
        auto operator<=>(Entry const&) const = default;
    };
    using Entries = std::vector<Entry>; // sorted
    Entries const& entriesOf(std::span<RecordChange const> changes, NSPropertyDescription const& property) const;
    std::span<Entry const> entriesWith(std::span<RecordChange const> changes, NSPropertyDescription const& property,
                                       std::uint64_t hash) const;
    static Entries sorted(std::span<RecordChange const> changes, NSPropertyDescription const& property);

    mutable std::mutex mutex_;
    mutable std::map<NSPropertyDescription const*, Entries> entries_; // guarded by mutex_; what stands there stays
    mutable std::map<UniqueConstraint const*, Holders> unique_; // likewise
};

} // namespace Tessarin
