#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/NSObject.h"
#include "Tessarin/platform/runtime/Slot.h"
#include <string>
#include <string_view>
#include <vector>

namespace Tessarin {

class NSManagedObject;
class NSManagedObjectContext;
class NSManagedObjectID;

/// What the store adds to every managed object: keys in brackets, its context, the same record elsewhere, deletion, tokens.
/// All on the queue of the object's context.
class TESSARIN_API NSManagedObjectHelpers {
    friend class NSManagedObject; // only NSManagedObject can carry this room
    NSManagedObjectHelpers() = default;

public:
    class ThreadsafeToken;
    using KeySlot = Slot<NSManagedObjectHelpers, std::string_view, Value>;

    /// `object["title"]` reads `valueForKey`, `object["title"] = "Emma"` writes; writing absent clears the value.
    KeySlot operator[](std::string_view key) { return {*this, key}; }
    Value slot(std::string_view key);
    void setSlot(std::string_view key, Value value);

    /// The object's context, or null.
    Ref<NSManagedObjectContext> moc() const;
    /// The same record as an object of `context`.
    Ref<NSManagedObject> objectInContext(NSManagedObjectContext& context) const;
    /// Reads the record again; without a context, nothing happens.
    void refreshInContext(bool mergeChanges = true);
    /// Deletes the object from its context; with `save`, also saves through every ancestor to the store before it returns.
    void deleteFromContext(bool save = false);
    /// Whether the entity has an attribute or a relationship of that name.
    bool hasPropertyForKey(std::string_view key) const;
    Ref<ThreadsafeToken> threadsafeToken() const;
    /// Prints the object's description as one line to standard output.
    void log() const;

    /// The entity's name of the plain class. A subclass that hides this with an own static `entityName()` names another;
    /// `entityName<T>()` gives the name for every class.
    static std::string entityName();

protected:
    ~NSManagedObjectHelpers() = default;

private:
    NSManagedObject& home() noexcept;
    NSManagedObject const& home() const noexcept;
};

/// A record's identity, to be handed to another queue: no context, no values. The only value of the object graph that is
/// meant to cross queues; immutable, any thread.
class TESSARIN_API NSManagedObjectHelpers::ThreadsafeToken : public NSObject {
public:
    Ref<NSManagedObjectID> const& objectID() const noexcept { return objectID_; }

    /// Not offered: a token is made from an object. Fatal.
    void init() override;
    virtual void init(NSManagedObject const& object);

protected:
    ThreadsafeToken() = default;

private:
    Ref<NSManagedObjectID> objectID_;
};

/// The last piece of a class name: "Person" of "App.Person".
TESSARIN_API std::string lastPieceOfClassName(std::string_view name);

/// The entity of an object class: what its own static `entityName()` says, else the class's name without its namespaces.
template <class T> std::string entityName() {
    if constexpr (&T::entityName != &NSManagedObjectHelpers::entityName)
        return T::entityName();
    else
        return lastPieceOfClassName(classOf<T>().name());
}

/// Tokens for a list of objects, in their order.
template <class T>
std::vector<Ref<NSManagedObjectHelpers::ThreadsafeToken>> threadsafeTokens(std::vector<Ref<T>> const& objects) {
    std::vector<Ref<NSManagedObjectHelpers::ThreadsafeToken>> tokens;
    tokens.reserve(objects.size());
    for (auto const& object : objects) tokens.push_back(object->threadsafeToken());
    return tokens;
}

} // namespace Tessarin
