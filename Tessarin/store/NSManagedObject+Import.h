#pragma once
#include "Tessarin/Export.h"
#include "Tessarin/platform/runtime/Dictionary.h"
#include <optional>
#include <string>
#include <string_view>

namespace Tessarin {

class NSAttributeDescription;
class NSManagedObject;
class NSRelationshipDescription;

/// Filling objects from text-keyed dictionaries, typically decoded JSON. Runs on the caller's thread, which is the queue of
/// the object's context. Three hooks of NSManagedObject may be overridden: `dictionaryKeyToAttributeName` (unless
/// overridden: the key unchanged; an absent result skips the entry), `dictionaryStringToDate` (the forms
/// "2015-03-01T12:00:00.000+0000" and "Sun, 01 Mar 2015 12:00:00 GMT") and `findExistingRelationship` (prints a warning and
/// finds nothing, so that every nested dictionary makes a new object).
class TESSARIN_API NSManagedObjectImport {
    friend class NSManagedObject; // only NSManagedObject can carry this room
    NSManagedObjectImport() = default;

public:
    /// Sets attributes from the entries whose raw key names one, converted to the attribute's type, and follows nested
    /// dictionaries under the name of a relationship. Everything else is skipped silently: unknown keys, lists, attributes
    /// of other types. A number or text that does not convert clears the attribute.
    void importDictionary(Dictionary const& dictionary);
    /// Attaches and fills the object that `findExistingRelationship` finds, else a new one. Null when there is no such
    /// relationship.
    Ref<NSManagedObject> importRelationship(std::string_view relationship, Dictionary const& fromDictionary);
    /// The same; it asks `findExistingRelationship` (again, when called from `importRelationship`) before it makes one.
    Ref<NSManagedObject> addRelationship(std::string_view relationship, Dictionary const& fromDictionary);
    /// True exactly for "true", "1" and "y". The import applies the same rule by itself.
    std::optional<bool> dictionaryStringToBool(std::string_view text);

protected:
    ~NSManagedObjectImport() = default;

private:
    NSManagedObject& home() noexcept;
    void importValue(NSAttributeDescription const& attribute, std::string_view name, Value const& value, bool setsPlainly);
    Ref<NSManagedObject> existing(NSRelationshipDescription const& relationship, Dictionary const& dictionary);
    Ref<NSManagedObject> importRelationship(NSRelationshipDescription const& relationship, Dictionary const& dictionary);
    Ref<NSManagedObject> addRelationship(NSRelationshipDescription const& relationship, Dictionary const& dictionary);
    Ref<NSManagedObject> attach(NSRelationshipDescription const& relationship, Ref<NSManagedObject> object,
                                Dictionary const& dictionary);
};

} // namespace Tessarin
