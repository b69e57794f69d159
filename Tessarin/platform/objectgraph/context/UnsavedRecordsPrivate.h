#pragma once
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"

#include <optional>

namespace Tessarin {

class NSPredicate;

/// The records of a request's entity whose rows are not in the store as a context sees them (its own changed objects, and those
/// of the change sets on their way), and those whose answer to the request is turned by what is not saved of others. Made for
/// one operation, in a time that does not grow with what is not saved of entities that the request does not ask.
class UnsavedRecords {
public:
    /// `committed`: sets that are in the store by now, of which the asker's answer may not know.
    UnsavedRecords(ContextState& context, RecordReader const& reader, NSFetchRequest const& request,
                   NSEntityDescription const& entity, ChangeSets const& committed);
    UnsavedRecords(UnsavedRecords const&) = delete;
    UnsavedRecords& operator=(UnsavedRecords const&) = delete;

    bool empty() const noexcept { return count_ == 0; }
    /// At most so many.
    std::size_t count() const noexcept { return count_; }
    bool contains(RecordKey key) const;
    /// Takes out the rows of those records.
    void removeFrom(std::vector<RowRef>& rows);
    /// Whether the answer of any record may be turned.
    bool turnsAll() const noexcept { return turnsAll_; }
    /// The records that may fulfil the request's predicate.
    std::vector<RecordKey> candidates() const;
    /// The same for a request without a predicate that asks for the first `count` in an order by attributes: those that may be
    /// among them, without a look at all that is inserted.
    std::vector<RecordKey> firstCandidates(std::size_t count) const;
    /// Whether the request asks for that: for the first records in an order by attributes.
    bool listsFirst() const;
    /// The keys of those that the store may have, as ranges.
    std::vector<KeyRange> stored() const;

private:
    bool isWanted(NSEntityDescription const& entity) const {
        return request_.includesSubentities() ? entity.isKindOf(&entity_) : &entity == &entity_;
    }
    void note(ChangeSet const& set, NSEntityDescription const& entity);
    void noteQuestion() const;
    bool isOwn(RecordKey key) const;
    void addOwn(KeySet& keys) const;
    void addOf(ChangeSet const& set, KeySet& keys) const;
    /// Adds what is known, by its index, of an equality that the predicate asks for; false when it asks for none.
    bool addEqual(ChangeSet const& set, NSPredicate const& predicate, KeySet& keys) const;
    bool addOwnEqual(NSPredicate const& predicate, KeySet& keys) const;

    ContextState& context_;
    RecordReader const& reader_;
    NSFetchRequest const& request_;
    NSEntityDescription const& entity_;
    ChangeSets withCommitted_; // empty where none were committed
    ChangeSets const* sets_;
    std::optional<KeySet> own_; // the context's changed objects, once they are looked up often
    KeySet turned_;
    bool turnsAll_ = false;
    std::size_t ownCount_ = 0;
    std::size_t count_ = 0;
};

/// The objects in memory that fulfil an equality which the predicate asks for, and perhaps a few others; absent when it asks for
/// none that is looked up.
std::optional<std::vector<Ref<NSManagedObject>>> objectsByEquality(ContextState& context, NSPredicate const& predicate,
                                                                   NSEntityDescription const& entity);

} // namespace Tessarin
