#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/objectgraph/persistence/history/ChangeOriginPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeIndexPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeMergesPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeOrderPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/rows/Row.h"
#include "Tessarin/platform/objectgraph/persistence/rows/RowCachePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyRangePrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tessarin {

/// What changed in one to-many relationship of one record. The other side's to-one or to-many has its own change.
struct RelationshipChange {
    NSRelationshipDescription const* relationship = nullptr;
    std::vector<RecordKey> added;
    std::vector<RecordKey> removed;
    std::optional<std::vector<RecordKey>> order; // ordered relationships: the whole list as it is now
};

/// The order of records that are alike: by key, what has no permanent one yet behind the rest in the order in which it was made.
inline bool isBeforeByKey(RecordKey a, RecordKey b) noexcept { return (a < 0) != (b < 0) ? b < 0 : a < 0 ? a > b : a < b; }

/// What happened to one record.
struct RecordChange {
    enum class Kind : std::uint8_t { Insert, Update, Delete };

    Kind kind = Kind::Insert;
    bool changesNoLinks = false; // of an update that somebody else made: it is of attributes alone
    RecordKey key = 0;                           // permanent
    NSEntityDescription const* entity = nullptr; // the record's own, never an ancestor of it
    RowRef before;                               // the row that the change was made on; none for an insertion
    RowRef after; // none for a deletion; for an update equal to `before` when only to-many relationships changed
    std::vector<RelationshipChange> relationships;

    /// False when only to-many relationships changed, which leave the row as it is.
    bool changesRow() const noexcept { return kind != Kind::Update || after != before; }
};

/// Of a set that is a step for somebody's undo manager: what the changes themselves do not say.
struct UndoableStep {
    /// Who were the members before, in their order: where that has changed, and where the owner goes and no row tells.
    struct Members {
        NSRelationshipDescription const* relationship = nullptr;
        RecordKey owner = 0;
        std::vector<RecordKey> keys;
    };
    Ref<std::string const> name; // the same object for all sets of a step
    std::vector<Members> members;
};

/// The changes of one save: immutable, shared by the contexts above and the store. Any thread.
class TESSARIN_API ChangeSet {
public:
    ChangeSet(Ref<RowSpace> space, std::vector<RecordChange> changes, Ref<ChangeOrigin const> origin = nullptr,
              Ref<UndoableStep const> undoStep = nullptr);

    Ref<RowSpace> const& sharedSpace() const noexcept { return space_; }
    /// Null where nobody has said who made them.
    Ref<ChangeOrigin const> const& origin() const noexcept { return origin_; }
    /// All changes, sorted by the index of the record's root entity, then by key.
    std::span<RecordChange const> changes() const noexcept { return changes_; }
    std::span<RecordChange const> changesOf(NSEntityDescription const& rootEntity) const noexcept;
    RecordChange const* find(NSEntityDescription const& entity, RecordKey key) const noexcept;
    bool empty() const noexcept { return changes_.empty(); }
    std::span<RecordKey const> deletedKeys() const noexcept { return deletedKeys_; }
    /// The places among `changes` of records that lead elsewhere than they did; those that came back may.
    std::span<std::uint32_t const> movedRecords() const noexcept { return movedRecords_; }
    /// Null where it cannot be undone by whoever it is handed to.
    Ref<UndoableStep const> const& undoStep() const noexcept { return undoStep_; }

    /// How many records of exactly this entity have changed rows.
    std::size_t changedRowsOf(NSEntityDescription const& entity) const noexcept { return changedRows_[entity.index()]; }
    /// Whether it changes rows of that tree of entities that were there before.
    bool updatesOf(NSEntityDescription const& rootEntity) const noexcept { return updates_[rootEntity.index()]; }
    bool changesRelationships() const noexcept { return changesRelationships_; }
    /// The records of that tree of entities whose attribute has this value after the change, and perhaps a few others; absent
    /// where that is not known without a look at each.
    std::optional<std::vector<RecordKey>> keysWith(NSEntityDescription const& rootEntity, NSAttributeDescription const& attribute,
                                                   Value const& value) const;

    /// How many those are at most; 0 where it is not known.
    std::size_t countWith(NSEntityDescription const& rootEntity, NSAttributeDescription const& attribute,
                          Value const& value) const {
        return index_.count(changesOf(rootEntity), attribute, value);
    }

    /// The records that have these values of a constraint after the change.
    std::vector<RecordKey> keysWith(UniqueConstraint const& constraint, std::string const& values) const;

    /// The records of that tree of entities whose to-one relationship leads to the record of that key after the change.
    std::vector<RecordKey> keysReferring(NSEntityDescription const& rootEntity, NSRelationshipDescription const& relationship,
                                         RecordKey key) const;

    /// The keys of records of that tree of entities whose rows it changes and which a store may have.
    std::span<KeyRange const> keysOfRows(NSEntityDescription const& rootEntity) const noexcept {
        return keysOfRows_[rootEntity.index()];
    }
    /// The records that a question asks for that has no count.
    std::vector<RecordChange const*> matching(ChangeQuestion const& question) const;
    /// The first `count` records of a question with a count that `accepts`, in its order.
    std::vector<RecordChange const*> first(ChangeQuestion const& question, FunctionRef<bool(RecordChange const&)> accepts) const;
    /// Whether the answer needs no look at each record any more.
    bool isReadyFor(ChangeQuestion const& question) const;
    void makeReadyFor(ChangeQuestion const& question, std::atomic<bool> const* isGivenUp = nullptr) const;
    /// Makes ready for what the main queue has asked lately: by whoever saves, so that it need not wait.
    void prepare() const;

    /// The records of that tree of entities whose row is made of several changes, where this set is laid over those: what is seen
    /// of them may be in no set.
    using Sets = std::span<Ref<ChangeSet const> const>;
    ChangeMerges::Keys merged(NSEntityDescription const& rootEntity, Sets earlier) const {
        return merges_.find(*this, rootEntity, earlier);
    }
    bool knowsMerged(NSEntityDescription const& rootEntity, Sets earlier) const {
        return merges_.knows(*this, rootEntity, earlier);
    }
    /// Another one for each set of the process.
    std::uint64_t number() const noexcept { return number_; }

private:
    bool hasIndexFor(ChangeQuestion const& question) const;
    bool isLongToAsk(ChangeQuestion const& question) const;

    Ref<RowSpace> space_;
    Ref<ChangeOrigin const> origin_;
    std::vector<RecordChange> changes_;
    std::vector<RecordKey> deletedKeys_;
    std::vector<std::uint32_t> movedRecords_;
    Ref<UndoableStep const> undoStep_;
    std::vector<std::size_t> changedRows_; // by index of the entity
    std::vector<std::vector<KeyRange>> keysOfRows_; // by index of the root entity, like what follows
    std::vector<bool> updates_; // by index of the root entity
    bool changesRelationships_ = false;
    ChangeIndex index_;
    ChangeMatches matches_;
    ChangeOrder order_;
    ChangeMerges merges_;
    std::uint64_t const number_;
};

} // namespace Tessarin
