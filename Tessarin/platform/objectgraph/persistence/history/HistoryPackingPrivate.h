#pragma once
#include "Tessarin/platform/objectgraph/persistence/history/HistoryTransaction.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeSetPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <map>
#include <span>
#include <string>
#include <tuple>

namespace Tessarin {

/// Packs what a transaction changed: records of one entity to which the same happened stand together as runs of neighbouring keys,
/// so that one new record takes five bytes, and a hundred thousand take ten. docs/store-format.md tells the form.
class TESSARIN_API HistoryPacker {
public:
    using Kind = HistoryChange::Kind;
    using Extent = HistoryChange::Extent;
    /// The properties that an update changed, a bit each by their index.
    using Mask = std::vector<std::uint8_t>;
    /// What an entity is called in the file.
    using NumberOf = FunctionRef<std::int64_t(NSEntityDescription const&)>;

    /// Deletions of entities with attributes that are kept are left to `addDeleted`.
    void add(ChangeSet const& set);
    /// It costs least where keys of one entity, kind and mask come in their order.
    void add(Kind kind, NSEntityDescription const& entity, RecordKey first, RecordKey last, Extent extent = Extent::Each,
             Mask const& mask = {});
    void addDeleted(NSEntityDescription const& entity, RecordKey key, Dictionary const& kept);
    bool empty() const noexcept { return sections_.empty(); }
    /// What was added, and forgets it.
    std::string pack(NumberOf numberOf);
    void forget();

    static void mark(Mask& mask, std::size_t property);
    bool keepsValues(NSEntityDescription const& entity);

private:
    struct Section {
        NSEntityDescription const* entity;
        Kind kind;
        Extent extent;
        Mask mask;
        std::string runs;
        std::size_t count = 0;
        RecordKey first = 0, last = -1; // of the run that is still open
        RecordKey packedUpTo = 0;
        std::string kept; // of a single deleted record
    };
    using Name = std::tuple<std::size_t, Kind, Extent, Mask>;
    Section& sectionOf(Kind kind, NSEntityDescription const& entity, Extent extent, Mask const& mask);
    static void close(Section& section);
    Mask const& maskOf(RecordChange const& change);

    std::vector<Section> sections_; // in the order of the sets
    std::map<Name, std::size_t> sectionsOfSet_;
    std::size_t last_ = 0; // where the last run went, as the next often does
    Mask mask_;
    std::vector<char> keepsValues_; // by index of the entity: 0 not known yet, 1 no, 2 yes
};

/// Reads what was packed, which anybody may have changed; false, and nothing is found, where it makes no sense. `entityNumbered`
/// gives null for an entity that there is not.
TESSARIN_API bool unpackHistory(std::span<std::byte const> packed,
                                FunctionRef<NSEntityDescription const*(std::int64_t)> entityNumbered,
                                std::vector<HistoryChange>& changes);

} // namespace Tessarin
