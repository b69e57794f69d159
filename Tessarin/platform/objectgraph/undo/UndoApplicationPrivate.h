#pragma once
#include "Tessarin/platform/objectgraph/context/ContextStatePrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/KeyTablePrivate.h"
#include "Tessarin/platform/objectgraph/undo/UndoStepPrivate.h"
#include <deque>
#include <set>

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
    /// The object of a record that the step names, or that something of it leads to: looked up once, and kept until the end.
    struct Known {
        Object object;            // null while the register of the context has none
        std::uint32_t linked = 0; // a bit for each to-one of which both ends were seen to be there
        bool isSought = false;    // among those that are read ahead, or there is no record now
        bool isDoomed = false;    // this makes it go
        bool isRevived = false;   // this has brought it back
    };
    /// Of a member that joined or left.
    struct Ends {
        Known *owner, *member;
    };
    /// A link of a to-one that is taken back.
    struct Leading {
        NSManagedObject* object;
        Relationship const* relationship;
        RecordKey before;
    };
    /// The order that a list is to have.
    struct Order {
        NSManagedObject* owner;
        Relationship const* relationship;
        std::vector<RecordKey> keys;
    };

    RecordKey current(RecordKey key) const { return key < 0 ? current_(key) : key; }
    Known& known(RecordKey key);
    Known& knownDeleted(UndoStep::Deletion const& deletion);
    void readAhead();
    NSManagedObject* there(NSEntityDescription const& entity, RecordKey key);
    NSManagedObject* there(UndoStep::Record const& record) { return there(*record.entity, record.key); }
    NSManagedObject* there(Known& known, NSEntityDescription const& entity, RecordKey key);
    bool isDoomed(RecordKey key) const;

    void revive(UndoStep::Deletion const& deletion, Known& known);
    void keepOrders(NSManagedObject& object);
    void reviveUnsaved(NSManagedObject& object);
    void reviveGone(NSManagedObject& object, RecordKey key, UndoStep::Deletion const& deletion);
    static void noteLinked(Known& known, Relationship const& relationship);
    void linkAgain(Known const& revived);
    bool isHeldBy(NSManagedObject& object, Relationship const& relationship, NSManagedObject* destination);

    void restoreValue(UndoStep::ValueChange const& change);
    void restoreLinks();
    void letGo(UndoStep::ValueChange const& change);
    void leadBack(Leading const& leading);
    void restoreMember(UndoStep::MemberChange const& change, Ends const& ends);

    bool hasEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    void putEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    void takeEnd(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    bool isFree(NSManagedObject& object, Relationship const& relationship, NSManagedObject& forWhom);
    std::pair<bool, bool> endsOf(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    bool link(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);
    void unlink(NSManagedObject& object, Relationship const& relationship, NSManagedObject& other);

    std::vector<RecordKey> membersThere(NSManagedObject& owner, Relationship const& relationship);
    void findOrders();
    void restoreOrder(Order const& order);

    ContextState& context_;
    UndoStep const& step_;
    FunctionRef<RecordKey(RecordKey)> current_;
    FunctionRef<bool(RecordKey)> isLost_;
    std::deque<Known> all_;
    KeyTable<Known> byKey_;
    // Of the step's members, deletions and insertions, in their orders.
    std::vector<Ends> ends_;
    std::vector<Known*> deleted_, made_;
    std::vector<Known*> revived_;
    std::vector<Object> inserted_;                                         // which are doomed
    std::set<std::pair<RecordKey, NSPropertyDescription const*>> emptied_; // to-ones that this has emptied
    std::vector<Leading> leading_;
    std::vector<Order> orders_;
};

} // namespace Tessarin
