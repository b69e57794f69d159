#pragma once
#include "Tessarin/platform/runtime/Value.h"
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Tessarin {

/// What an attribute holds. The numbers stand in files and are never changed.
enum class NSAttributeType : int {
    Undefined = 0,
    Integer16 = 100,
    Integer32 = 200,
    Integer64 = 300,
    Decimal = 400,
    Double = 500,
    Float = 600,
    String = 700,
    Boolean = 800,
    Date = 900,
    BinaryData = 1000,
    UUID = 1100,
    URI = 1200,
    Transformable = 1800,
    ObjectID = 2000
};

/// What happens to the destinations of a relationship when their owner is deleted.
enum class NSDeleteRule : int { NoAction = 0, Nullify = 1, Cascade = 2, Deny = 3 };

using UserInfo = std::map<std::string, std::string, std::less<>>;

/// How an attribute differs from a plain, optional, stored one.
struct AttributeOptions {
    bool optional = true; // false: a save without a value fails
    bool transient = false; // never stored
    Value defaultValue = {}; // converted to the attribute's type; what does not convert is ignored
    std::optional<double> minimum = {}; // of a number, of a date's seconds since 2001, of a text's count of code points
    std::optional<double> maximum = {};
    std::string regularExpression = {}; // the whole text must match; a pattern that does not compile is ignored
    bool indexed = false;
    bool keptInHistory = false; // its value stays in the store's history when the record is deleted
    bool fullText = false; // its words can be searched (FINDS); of a stored text only. In a document: user info "fullText", "YES"
    bool allowsExternalBinaryDataStorage = false;
    bool derived = false;
    std::string derivationExpression = {};
    std::string valueTransformerName = {};
    std::string renamingIdentifier = {}; // the name in the previous version; its own name when empty
    std::string versionHashModifier = {};
    UserInfo userInfo = {};
    friend bool operator==(AttributeOptions const&, AttributeOptions const&) = default;
};

/// How a relationship differs from an optional one without inverse.
struct RelationshipOptions {
    std::string inverse = {}; // name of the relationship at the other end; one-way when empty
    std::string inverseEntity = {}; // where to look for it; the destination when empty
    NSDeleteRule deleteRule = NSDeleteRule::Nullify;
    bool optional = true; // false: a save without a destination fails
    bool ordered = false; // of a to-many only
    std::size_t minCount = 0; // holds for a relationship that is not optional
    std::size_t maxCount = 0; // 0: unbounded
    bool transient = false;
    std::string renamingIdentifier = {};
    std::string versionHashModifier = {};
    UserInfo userInfo = {};
    friend bool operator==(RelationshipOptions const&, RelationshipOptions const&) = default;
};

/// How an entity differs from a concrete one without parent.
struct EntityOptions {
    std::string className = {}; // of its objects; the generic object when empty or not registered
    std::string parent = {};
    bool isAbstract = false;
    std::string renamingIdentifier = {};
    std::string versionHashModifier = {};
    UserInfo userInfo = {};
    friend bool operator==(EntityOptions const&, EntityOptions const&) = default;
};

struct AttributeDefinition {
    std::string name;
    NSAttributeType type = NSAttributeType::Undefined;
    AttributeOptions options;
    friend bool operator==(AttributeDefinition const&, AttributeDefinition const&) = default;
};

struct RelationshipDefinition {
    std::string name;
    std::string destination;
    bool toMany = false;
    RelationshipOptions options;
    friend bool operator==(RelationshipDefinition const&, RelationshipDefinition const&) = default;
};

struct IndexDefinition {
    struct Element {
        std::string property;
        bool ascending = true;
        friend bool operator==(Element const&, Element const&) = default;
    };
    std::string name;
    std::vector<Element> elements;
    friend bool operator==(IndexDefinition const&, IndexDefinition const&) = default;
};

struct EntityDefinition {
    std::string name;
    EntityOptions options;
    std::vector<AttributeDefinition> attributes; // those declared here
    std::vector<RelationshipDefinition> relationships;
    std::vector<std::vector<std::string>> uniquenessConstraints; // one naming an unknown property is ignored
    std::vector<IndexDefinition> indexes; // likewise
};

/// A named request as a model carries it; `predicateFormat` may hold variables written $NAME.
struct FetchRequestTemplate {
    std::string name;
    std::string entityName;
    std::string predicateFormat;
    friend bool operator==(FetchRequestTemplate const&, FetchRequestTemplate const&) = default;
};

/// The plain description from which a model is built.
struct ModelDefinition {
    std::string versionIdentifier;
    std::vector<EntityDefinition> entities;
    std::map<std::string, std::vector<std::string>, std::less<>> configurations; // name → entities; unknown ones are ignored
    std::vector<FetchRequestTemplate> fetchRequestTemplates;
};

} // namespace Tessarin
