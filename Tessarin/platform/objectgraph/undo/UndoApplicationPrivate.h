#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/undo/UndoStepPrivate.h"
#include <set>
#include <unordered_set>

namespace Tessarin {

/// Takes one step back in a context: what it deleted comes back, values and links are again what they were where they are still
/// what the step left, orders follow, and what it inserted goes. Every change on the way is an ordinary one, which the recorder
/// writes down; that is the step that brings all this back.
class UndoApplication {
public:
    UndoApplication(ContextState& context, UndoStep const& step, FunctionRef<RecordKey(RecordKey)> current,
                    FunctionRef<bool(RecordKey)> isLost)
        : context_(context), step_(step), current_(current), isLost_(isLost) {}

    void run();

private:
    using Object = Ref<NSManagedObject>;
    using Relationship = NSRelationshipDescription;
    /// A link of a to-one that is taken back.
    struct Leading {
        Object object;
        Relationship const* relationship;
        RecordKey before;
    };
    /// The order that a list is to have.
    struct Order {
        Object owner;
        Relationship const* relationship;
        std::vector<RecordKey> keys;
    };

    void readAhead();
    Object there(NSEntityDescription const& entity, RecordKey key);
    Object there(UndoStep::Record const& record) { return there(*record.entity, record.key); }
    bool isDoomed(RecordKey key) const { return doomed_.contains(key); }

    void revive(UndoStep::Deletion const& deletion);
    void keepOrders(NSManagedObject& object);
    void reviveUnsaved(NSManagedObject& object);
    void reviveGone(NSManagedObject& object, RecordKey key, UndoStep::Deletion const& deletion);
    void linkAgain(NSManagedObject& object);
    bool isHeldBy(NSManagedObject& object, Relationship const& relationship, Object const& destination);

    void restoreValue(UndoStep::ValueChange const& change);
    void restoreLinks();
    void letGo(UndoStep::ValueChange const& change);
    void leadBack(Leading const& leading);
    void restoreMember(UndoStep::MemberChange const& change, bool mustJoin);

    bool hasEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    void putEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    void takeEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    bool isFree(NSManagedObject& object, Relationship const& relationship, NSManagedObject& forWhom);
    std::pair<bool, bool> endsOf(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    bool link(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    void unlink(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);

    void findOrders();
    void restoreOrder(Order const& order);

    ContextState& context_;
    UndoStep const& step_;
    FunctionRef<RecordKey(RecordKey)> current_;
    FunctionRef<bool(RecordKey)> isLost_;
    std::vector<Object> held_, revived_, inserted_;
    std::unordered_set<RecordKey> doomed_;                           // the keys of the latter
    std::set<std::pair<RecordKey, NSPropertyDescription const*>> emptied_; // to-ones that this has emptied
    std::vector<Leading> leading_;
    std::vector<Order> orders_;
};

} // namespace Tessarin
