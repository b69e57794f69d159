#pragma once
#include "Tessarin/platform/objectgraph/persistence/rows/ChangeChainPrivate.h"
#include <unordered_map>
#include <unordered_set>

namespace Tessarin {

/// One run of `reconcile`: what each record went through is held against what is stored, the conflicts are decided, and the sets are
/// written anew where that changes them. What follows for links is in RowConflicts+Links.cpp.
class Reconciliation {
public:
    Reconciliation(std::span<Ref<ChangeSet const> const> sets, StoredRow stored, SetTaker taker)
        : sets_(sets), stored_(stored), taker_(taker) {}

    Ref<NSError> run(ConflictResolver resolve, SaveOutcome& outcome);

private:
    struct Rewritten {
        std::size_t set = 0;
        RecordChange change; // without relationships; `before` and `after` the same row: nothing but relationships
    };

    void collect();
    void lookAt(ChangeChain const& chain);
    static bool isAsSeen(Row const& base, Row const& stored);
    bool differsByCutLinks(Row const& base, Row const& stored) const;
    void rewrite(ChangeChain const& chain, RowRef const& stored, RowRef const& final);
    void agreeWithPartners(RowConflict const& conflict);
    void lead(RecordKey key, NSRelationshipDescription const& relationship, RecordKey from, RecordKey to,
              RowConflict const& conflict);
    void leadBackToSpared();
    RowRef leadingBack(ChangeChain const& chain, Row const& final, RowRef const& stored);
    std::vector<RelationshipChange> decided(std::vector<RelationshipChange> relationships, std::size_t set) const;
    void rewriteSets(SaveOutcome& outcome);

    std::span<Ref<ChangeSet const> const> sets_;
    StoredRow stored_;
    SetTaker taker_;
    std::unordered_map<RecordKey, ChangeChain> chains_;
    std::vector<RowConflict> conflicts_;
    std::unordered_map<RecordKey, Rewritten> rewritten_;
    std::unordered_map<RecordKey, std::size_t> spared_; // whose deletions were given up, with the sets of these
    std::unordered_set<RecordKey> gone_;
    RowBuilder builder_;
};

} // namespace Tessarin
