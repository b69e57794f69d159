#pragma once
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyAliasesPrivate.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include <string>
#include <vector>

namespace Tessarin {

/// What one undo takes back: what was there before, and what the step left, by which it is seen whether others have been at it
/// since. Only what changed is kept: values by key, deleted objects with the row they had.
struct UndoStep {
    struct Record {
        NSEntityDescription const* entity = nullptr;
        RecordKey key = 0;
    };
    struct ValueChange {
        Record record;
        NSPropertyDescription const* property = nullptr;
        Value before, now; // of a to-one: keys, 0 for none
    };
    struct MemberChange {
        Record owner;
        NSRelationshipDescription const* relationship = nullptr;
        RecordKey member = 0;
        bool hasJoined = false;
    };
    /// What stood, and stands, between the places that are the same before and after.
    struct OrderChange {
        Record owner;
        NSRelationshipDescription const* relationship = nullptr;
        std::size_t at = 0;
        std::vector<RecordKey> before, now;
    };
    struct Members {
        NSRelationshipDescription const* relationship = nullptr;
        std::vector<RecordKey> keys;
    };
    struct Deletion {
        Record record;
        Ref<NSManagedObject> object; // with its values; null where a child deleted a record that nobody here had in memory
        // Of a child's deletion, what was there before:
        RowRef row = {};
        std::vector<Members> members = {}; // where no row tells of them, or of their order
    };

    std::string name;
    Ref<std::string const> importStep; // of what a child handed up; null for what was changed here
    std::vector<ValueChange> values;
    std::vector<MemberChange> members;
    std::vector<OrderChange> orders;
    std::vector<Record> insertions;
    std::vector<Deletion> deletions;

    bool empty() const noexcept {
        return values.empty() && members.empty() && orders.empty() && insertions.empty() && deletions.empty();
    }
    /// Room for what takes that step back.
    void expectInverseOf(UndoStep const& step);
    /// `current` gives the key that a record has now; whether any is another one.
    bool takeKeys(FunctionRef<RecordKey(RecordKey)> current);
    /// One change for each value and each link, from what was before the step to what it left; what came to nothing goes.
    void fold();
    /// False where folding it again surely leaves something: what has joined since is less than what would have to be undone by it.
    bool mayComeToNothing() const noexcept;

private:
    struct Sizes {
        std::size_t values = 0, members = 0, insertions = 0, deletions = 0;
    } folded_; // what `fold` left; what joins later is behind it
};

} // namespace Tessarin
