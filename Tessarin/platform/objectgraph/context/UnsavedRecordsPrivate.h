#pragma once
#include "Tessarin/platform/objectgraph/context/RecordReaderPrivate.h"
#include "Tessarin/platform/objectgraph/query/NSFetchRequest.h"

#include <optional>

namespace Tessarin {

class NSPredicate;
class SearchRanking;

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
    /// The records that may be among the request's results, found without a look at each.
    struct Candidates {
        std::vector<RecordKey> keys;
        std::vector<RowRef> fitting; // of further ones, which are seen so and fulfil the predicate; not of own changes
    };
    Candidates candidates() const;
    /// What an order by rank goes by: before candidates are asked for, or a preparation.
    void setRanking(Ref<SearchRanking const> ranking) {
        if (question_ && question_->search) question_->ranking = std::move(ranking);
    }
    /// What must be asked of change sets for that, and those of which it is asked: on any thread, so that the context's queue
    /// need not look at each record of a large one.
    struct Preparation {
        ChangeQuestion question;
        ChangeSets sets;

        /// Whether each set is asked for the records with a value, and not for those that fulfil the condition.
        bool isOfFewEqual() const;
        bool isDone() const;
        /// `ranking`: of an order by rank.
        void carryOut(Ref<SearchRanking const> const& ranking, std::atomic<bool> const& isGivenUp);
    };
    /// Absent where there is nothing to prepare.
    std::optional<Preparation> preparation() const;
    /// What is asked now will be asked again beside the next save.
    void noteQuestion() const;
    /// The keys of those that the store may have, as ranges.
    std::vector<KeyRange> stored() const;

private:
    bool isWanted(NSEntityDescription const& entity) const {
        return request_.includesSubentities() ? entity.isKindOf(&entity_) : &entity == &entity_;
    }
    void note(ChangeSet const& set, NSEntityDescription const& entity);
    std::optional<ChangeQuestion> questionOf(bool isAsked);
    bool isSortedByRows() const;
    std::vector<RecordKey> namesOf(RecordKey key) const;
    bool isOwn(RecordKey key) const;
    void addOwn(KeySet& keys) const;
    void addAll(ChangeSet const& set, KeySet& keys) const;
    void addNamed(std::span<RecordKey const> named, KeySet& keys) const;
    void addMerged(KeySet& keys) const;
    void addEqual(ChangeSet const& set, KeySet& keys) const;
    void addAnswer(ChangeSet const& set, Candidates& candidates, KeySet& keys) const;
    bool isSeenSo(RecordChange const& change) const;
    bool addOwnEqual(NSPredicate const& predicate, KeySet& keys) const;

    ContextState& context_;
    RecordReader const& reader_;
    NSFetchRequest const& request_;
    NSEntityDescription const& entity_;
    ChangeSets withCommitted_; // empty where none were committed
    ChangeSets const* sets_;
    std::optional<std::vector<RecordKey>> named_; // what the predicate allows
    bool isAnswerWhole_ = false; // what answers the question fulfils the predicate
    std::optional<ChangeQuestion> question_; // for the sets; none: each record is a candidate
    std::optional<KeySet> own_; // the context's changed objects, once they are looked up often
    KeySet turned_;
    bool turnsAll_ = false;
    std::size_t ownCount_ = 0;
    std::size_t count_ = 0;
};

/// How many records there are up to the last one that is wanted, for a request with a limit; never so many that more could
/// not be added.
std::size_t countUpToLast(NSFetchRequest const& request);

/// The objects in memory that fulfil an equality which the predicate asks for, and perhaps a few others; absent when it asks for
/// none that is looked up.
std::optional<std::vector<Ref<NSManagedObject>>> objectsByEquality(ContextState& context, NSPredicate const& predicate,
                                                                   NSEntityDescription const& entity);

} // namespace Tessarin
