#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/foundation/time/NSDate.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/context/ObjectState.h"
#include "Tessarin/platform/objectgraph/context/PropertyHandle.h"
#include "Tessarin/platform/objectgraph/context/Settable.h"
#include "Tessarin/platform/objectgraph/persistence/stores/NSManagedObjectID.h"
#include "Tessarin/platform/queues/QueueChecks.h"
#include "Tessarin/platform/runtime/Closure.h"
#include "Tessarin/platform/runtime/FunctionRef.h"
#include "Tessarin/platform/runtime/ObjectSlab.h"
#include "Tessarin/platform/runtime/ScopedConnection.h"
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>
// What other rooms add to every managed object:
#include "Tessarin/store/NSManagedObject+Helpers.h"
#include "Tessarin/store/NSManagedObject+Import.h"

namespace Tessarin {

class MutableObjectSet;
class NSManagedObjectContext;

/// A value that was observed.
struct ValueChange {
    std::string key;
    Value before, now;
};

/// A record as an object of one context. Use it on the queue of its context only (releasing it is fine anywhere); anything else is
/// fatal while queues are checked (QueueChecks.h).
/// Subclasses are registered with `registerClass` under the class name of their entity; an entity whose class is not
/// registered uses this class. Asking a fault for a value, or an object for what it leads to, reads the store; when that fails
/// it throws ErrorException, nothing has changed, and the next use asks again.
///
///     auto book = context->insertNewObject("Book");
///     book->setValueForKey("Emma", "title");
///     book->setValueForKey(author, "author");   // keeps author.books up, too
class TESSARIN_API NSManagedObject : public IdentifiedObject, public NSManagedObjectHelpers, public NSManagedObjectImport {
public:
    template <class T> using ObjectAllocator = ObjectSlabAllocator<T>;
    using RegisteredSuperclass = NSManagedObject;

    // What `make` makes knows its class; nothing else can be made: a managed object comes from `context->insertObject<Book>()`.
    Class const& objectClass() const override = 0;
    NSEntityDescription const& entity() const noexcept { return state_.layout->entity(); }
    Ref<NSManagedObjectID> objectID() const;
    RecordKey recordKey() const override { return state_.key; }
    IdentityTable const& identityTable() const override;
    /// Null once the context is gone, and after the deletion of the object was saved.
    Ref<NSManagedObjectContext> managedObjectContext() const;

    /// Whether its values have not been asked for yet.
    bool isFault() const noexcept { return state_.has(ObjectState::Fault); }
    bool isInserted() const noexcept { return state_.has(ObjectState::Inserted); }
    bool isUpdated() const noexcept { return state_.has(ObjectState::Updated) && !isInserted() && !isDeleted(); }
    bool isDeleted() const noexcept { return state_.has(ObjectState::Deleted); }
    bool hasChanges() const noexcept { return state_.has(ObjectState::Changed); }

    /// Attributes as values; a to-one as an object; a to-many as a set of objects, as a list when it is ordered. Absent for a key
    /// that only other entities of its tree know, fatal for one that none does. NaN is absent wherever it is set.
    Value valueForKey(std::string_view key) override;
    /// Sets any property. A number is converted to the attribute's type, absent clears. Inverse relationships follow.
    /// Fatal for an unknown key, a value of a wrong kind, an object of another context or of a wrong entity.
    void setValueForKey(Value value, std::string_view key) override;
    NSObject const& predicateIdentity() const override;

    /// The members of a to-many, to be added to and removed from. Fatal when there is no such to-many.
    MutableObjectSet mutableSetValueForKey(std::string_view key);

    // The same by handle. A string view stays valid until the object changes or is refreshed. A setter takes what the attribute
    // holds without a loss: any text for a text, an integer for a wider one, a constant that fits; null and optionals where the
    // attribute is optional, and null for a to-one. What does not fit does not compile.
    template <class T> T get(AttributeHandle<T> const& attribute);
    template <class T> Ref<T> get(ToOneHandle<T> const& relationship);
    template <class T> std::vector<Ref<T>> get(ToManyHandle<T> const& relationship);
    template <class T> void set(AttributeHandle<T> const& attribute, std::type_identity_t<query::Settable<T>> value);
    template <class T, class U> void set(ToOneHandle<T> const& relationship, Ref<U> const& object);
    template <class T> void set(ToOneHandle<T> const& relationship, std::nullptr_t);
    template <class T, class U> void add(ToManyHandle<T> const& relationship, Ref<U> const& object);
    template <class T, class U> void remove(ToManyHandle<T> const& relationship, Ref<U> const& object);

    /// Tells of other values than at the last telling, or than now: at the end of each turn that changed them, here, by a child's
    /// save or by what was merged, on the context's queue, for as long as what it returns is kept. A deletion is not told. Keeps
    /// the object.
    ///
    ///     connection = book->observe(Book::title, [](std::string const& before, std::string const& now) { … });
    template <class T, class Told> ScopedConnection observe(AttributeHandle<T> const& attribute, Told told);
    ScopedConnection observe(std::vector<std::string> keys, Closure<void(std::span<ValueChange const> changes)> told);

    /// The unsaved values by name (absent for a cleared one); to-ones as objects, to-manys are left out.
    Dictionary changedValues();
    /// What would keep this object from being saved; null when nothing does. Called at save for inserted and updated objects;
    /// an override calls its base.
    virtual Ref<NSError> validateForSave();
    /// What a save would say of one property if it had that value, for a form; null for nothing. Code, text and userInfo are
    /// those of `validateForSave`, but for an override of that, which is not asked. The value is converted as a setter does;
    /// one of a wrong kind, for which a setter is fatal, is an error here: NSValidationError::WrongKind. To-ones take an object
    /// or nothing, to-manys a set or a list. Changes nothing. Fatal for an unknown key.
    ///
    ///     if (auto const error = book->validate(Book::year, field.text())) field.tell(error->localizedDescription());
    Ref<NSError> validate(PropertyHandle const& property, Value const& value) const;
    Ref<NSError> validateValueForKey(Value const& value, std::string_view key) const;
    std::string description() const override;

    // Called at the stated moments; they do nothing here.
    virtual void awakeFromInsert() {}
    virtual void awakeFromFetch() {}
    virtual void prepareForDeletion() {}
    virtual void willSave() {}

    /// Which of the hooks that are called very often T has of its own; for `registerClass`. What cannot be told counts as its own.
    static constexpr std::uint32_t prepareForDeletionHook = 1, willSaveHook = 2, setValueForKeyHook = 4, importKeyHook = 8;
    template <class T> static constexpr std::uint32_t ownHooks() {
        using Hook = void (NSManagedObject::*)();
        using Setter = void (NSManagedObject::*)(Value, std::string_view);
        using Naming = std::optional<std::string> (NSManagedObject::*)(std::string const&);
        constexpr bool preparesPlainly = requires { requires std::is_same_v<decltype(&T::prepareForDeletion), Hook>; };
        constexpr bool savesPlainly = requires { requires std::is_same_v<decltype(&T::willSave), Hook>; };
        constexpr bool setsPlainly = requires { requires std::is_same_v<decltype(&T::setValueForKey), Setter>; };
        constexpr bool keepsKeys = requires { requires std::is_same_v<decltype(&T::dictionaryKeyToAttributeName), Naming>; };
        return (preparesPlainly ? 0 : prepareForDeletionHook) | (savesPlainly ? 0 : willSaveHook) |
               (setsPlainly ? 0 : setValueForKeyHook) | (keepsKeys ? 0 : importKeyHook);
    }

    // Hooks of the import, overridable; what they do unless overridden stands in NSManagedObject+Import.h.
    virtual std::optional<std::string> dictionaryKeyToAttributeName(std::string const& key);
    virtual std::optional<NSDate> dictionaryStringToDate(std::string const& text);
    virtual Ref<NSManagedObject> findExistingRelationship(std::string const& entityName, Dictionary const& forDictionary);

    ~NSManagedObject() override;

protected:
    NSManagedObject() = default;

private:
    friend class GraphAccess;
    friend class NSManagedObjectImport;
    void fire() {
        if (queuesAreChecked()) [[unlikely]]
            requireQueue();
        if (state_.has(ObjectState::Fault)) fireFault();
    }
    void fireFault();
    void requireQueue() const;
    /// Where the row keeps the property, when the object shows its row as it is and the row keeps it as `type`; else null.
    Row::Place const* plainPlace(NSPropertyDescription const& property, CellType type) {
        fire();
        if (state_.extras || !state_.row) return nullptr;
        auto const& place = state_.row->placeOfProperty(property.index());
        return place.width != 0 && place.type == type ? &place : nullptr;
    }
    std::string_view textAt(NSPropertyDescription const& property) {
        auto const* place = plainPlace(property, CellType::Text);
        return place ? state_.row->text(*place) : shownText(property);
    }
    double realAt(NSPropertyDescription const& property) {
        auto const* place = plainPlace(property, CellType::Real);
        return place ? state_.row->real(*place) : shownReal(property);
    }
    std::int64_t integerAt(NSPropertyDescription const& property) {
        auto const* place = plainPlace(property, CellType::Integer);
        return place ? state_.row->integer(*place) : shownInteger(property);
    }
    Value attributeValueAt(NSPropertyDescription const& property);
    std::string_view shownText(NSPropertyDescription const& property);
    double shownReal(NSPropertyDescription const& property);
    std::int64_t shownInteger(NSPropertyDescription const& property);
    void setAttribute(NSAttributeDescription const& attribute, Value value);
    Ref<NSManagedObject> destination(NSRelationshipDescription const& relationship);
    std::vector<Ref<NSManagedObject>> destinations(NSRelationshipDescription const& relationship);
    void setDestination(NSRelationshipDescription const& relationship, NSManagedObject* object);
    void setDestinations(NSRelationshipDescription const& relationship, Value const& objects);
    void addDestination(NSRelationshipDescription const& relationship, NSManagedObject& object);
    void removeDestination(NSRelationshipDescription const& relationship, NSManagedObject& object);
    friend class MutableObjectSet;

    ObjectState state_;
};

/// A managed object belongs to a context, which makes it.
template <class T, class... Arguments>
    requires std::is_base_of_v<NSManagedObject, T>
Ref<T> make(Arguments&&...) {
    static_assert(
        sizeof(T) == 0,
        "a managed object is made by its context: call insertNewObject(\"Book\"), insertEntityNamed or insertObject<Book>()");
    return nullptr;
}

/// The live members of one to-many relationship of one object; keeps the object. Same queue as the object.
class TESSARIN_API MutableObjectSet {
public:
    void addObject(Ref<NSManagedObject> const& object) { owner_->addDestination(relationship_, *object); }
    void removeObject(Ref<NSManagedObject> const& object) { owner_->removeDestination(relationship_, *object); }
    /// The same at a place in the order, before the member that stands there; a member moves there. `at` is at most `count()`;
    /// fatal otherwise, and for a relationship without order.
    void insertObject(Ref<NSManagedObject> const& object, std::size_t at);
    /// Takes a member out of its place and puts it in at another, as the others stand without it.
    void moveObject(std::size_t from, std::size_t to);
    bool containsObject(Ref<NSManagedObject> const& object) const;
    std::size_t count() const;
    /// The members; in their order when the relationship has one.
    std::vector<Ref<NSManagedObject>> allObjects() const { return owner_->destinations(relationship_); }
    /// Makes `objects` the members, in that order when the relationship has one.
    void setObjects(std::vector<Ref<NSManagedObject>> const& objects);

private:
    friend class NSManagedObject;
    void requireOrdered() const;
    [[noreturn]] void requirePlace(std::size_t at, std::size_t count) const;
    MutableObjectSet(Ref<NSManagedObject> owner, NSRelationshipDescription const& relationship)
        : owner_(std::move(owner)), relationship_(relationship) {}
    Ref<NSManagedObject> owner_;
    NSRelationshipDescription const& relationship_;
};

} // namespace Tessarin

#include "Tessarin/platform/objectgraph/context/NSManagedObject.inl"
