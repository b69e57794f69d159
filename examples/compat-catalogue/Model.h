#pragma once
#include "Tessarin/platform/objectgraph/context/NSManagedObjectContext.h"

namespace Catalogue {

using Tessarin::Attribute;
using Tessarin::Dictionary;
using Tessarin::NSDate;
using Tessarin::NSManagedObject;
using Tessarin::Ref;
using Tessarin::ToMany;
using Tessarin::ToOne;

class Release;
class Status;

/// All classes override the import's hooks; what they find comes from the ImportIndex of their context.
class Browser : public NSManagedObject {
public:
    static inline Attribute<std::string> const identifier{"identifier"};
    static inline Attribute<std::string> const name{"name"};
    static inline ToOne<Browser> const upstream{"upstream"};
    static inline ToMany<Release> const releases{"releases"};

    Ref<NSManagedObject> findExistingRelationship(std::string const& entityName, Dictionary const& forDictionary) override;
    std::optional<std::string> dictionaryKeyToAttributeName(std::string const& key) override;

protected:
    Browser() = default;
};

class Release : public NSManagedObject {
public:
    static inline Attribute<std::string> const version{"version"};
    static inline Attribute<std::int64_t> const ordinal{"ordinal"};
    static inline Attribute<std::optional<NSDate>> const releaseDate{"releaseDate"};
    static inline ToOne<Browser> const browser{"browser"};

    std::optional<std::string> dictionaryKeyToAttributeName(std::string const& key) override;
    std::optional<NSDate> dictionaryStringToDate(std::string const& text) override;

protected:
    Release() = default;
};

class Statement;

class Feature : public NSManagedObject {
public:
    static inline Attribute<std::string> const path{"path"};
    static inline Attribute<std::string> const name{"name"};
    static inline Attribute<std::string> const summary{"summary"};
    static inline ToOne<Feature> const parent{"parent"};
    static inline ToOne<Status> const status{"status"};
    static inline ToMany<Statement> const statements{"statements"};

    Ref<NSManagedObject> findExistingRelationship(std::string const& entityName, Dictionary const& forDictionary) override;

protected:
    Feature() = default;
};

class Status : public NSManagedObject {
protected:
    Status() = default;
};

class Statement : public NSManagedObject {
public:
    static inline Attribute<std::int64_t> const position{"position"};
    static inline Attribute<std::string> const addedVersion{"addedVersion"};
    static inline Attribute<std::optional<bool>> const addedTruth{"addedTruth"};
    static inline Attribute<std::string> const removedVersion{"removedVersion"};
    static inline Attribute<std::string> const prefix{"prefix"};
    static inline Attribute<std::string> const flags{"flags"};
    static inline Attribute<bool> const isPartial{"partial_implementation"};
    static inline ToOne<Browser> const browser{"browser"};
    static inline ToOne<Feature> const feature{"feature"};

    Ref<NSManagedObject> findExistingRelationship(std::string const& entityName, Dictionary const& forDictionary) override;

protected:
    Statement() = default;
};

/// Makes the classes known under the names that the model's document uses. Once, first thing in main.
void registerModelClasses();

} // namespace Catalogue
