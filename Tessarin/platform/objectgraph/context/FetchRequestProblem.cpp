#include "Tessarin/platform/objectgraph/context/FetchRequestProblem.h"

#include "Tessarin/platform/foundation/predicates/NSComparisonPredicate.h"
#include "Tessarin/platform/foundation/predicates/NSCompoundPredicate.h"
#include "Tessarin/platform/objectgraph/context/NSManagedObject.h"
#include "Tessarin/platform/objectgraph/context/NearestKeysPrivate.h"
#include "Tessarin/platform/objectgraph/persistence/stores/StoreErrors.h"
#include "Tessarin/platform/objectgraph/query/SearchRankPrivate.h"

#include <algorithm>

namespace Tessarin {
namespace {

using Components = std::span<std::string const>;

constexpr std::size_t deepestNesting = 500;

/// Where a key path has led to.
struct Place {
    NSEntityDescription const* entity = nullptr; // null: plain values, which have no keys
    bool isMany = false;
    bool isOpen = false; // values of which nothing is known
};

Place placeOf(NSPropertyDescription const& property, bool isMany) {
    if (auto const* relationship = property.asRelationship())
        return {relationship->destinationEntity(), isMany || relationship->isToMany()};
    switch (property.asAttribute()->attributeType()) {
    case NSAttributeType::Integer16:
    case NSAttributeType::Integer32:
    case NSAttributeType::Integer64:
    case NSAttributeType::Decimal:
    case NSAttributeType::Double:
    case NSAttributeType::Float:
    case NSAttributeType::String:
    case NSAttributeType::Boolean:
    case NSAttributeType::Date:
    case NSAttributeType::BinaryData:
    case NSAttributeType::UUID:
    case NSAttributeType::URI: return {nullptr, isMany};
    default: return {.isOpen = true};
    }
}

Place placeOf(Value const& constant) {
    using Kind = Value::Kind;
    if (auto const object = constant.objectAs<NSManagedObject>()) return {&object->entity()};
    switch (constant.kind()) {
    case Kind::Absent:
    case Kind::Object:
    case Kind::List:
    case Kind::Set:
    case Kind::Dictionary:
    case Kind::ValueDictionary: return {.isOpen = true};
    default: return {};
    }
}

/// Goes through a request and throws the first thing that keeps it from being answered.
class Check {
public:
    explicit Check(NSEntityDescription const& entity) : entity_(entity) {}

    void request(NSFetchRequest const& request) {
        if (request.predicate()) predicate(*request.predicate());
        for (auto const& descriptor : request.sortDescriptors()) {
            if (descriptor->key() != searchRankKey)
                path(descriptor->keyPath());
            else if (!rankedSearchOf(request.predicate().get(), entity_))
                refuse("There is no rank without a FINDS that all results fulfil, over full-text attributes of " +
                       entity_.name() + ".");
        }
        for (auto const& keyPath : request.relationshipKeyPathsForPrefetching()) prefetched(KeyPath{keyPath});
    }

private:
    [[noreturn]] static void refuse(std::string text) {
        throw ErrorException(storeError(StoreErrorCode::UnknownEntity, std::move(text)));
    }

    void predicate(NSPredicate const& predicate) {
        if (auto const* compound = predicate.asCompound()) {
            if (compound->depth() > deepestNesting) refuse("The conditions of this request are nested more than 500 deep.");
            for (auto const& part : compound->subpredicates()) this->predicate(*part);
        } else if (auto const* comparison = predicate.asComparison()) {
            expression(*comparison->leftExpression());
            expression(*comparison->rightExpression());
        }
    }

    Place expression(NSExpression const& expression) {
        switch (expression.expressionType()) {
        case NSExpressionType::ConstantValue: return placeOf(expression.constantValue());
        case NSExpressionType::EvaluatedObject: return {&entity_};
        case NSExpressionType::Variable: refuse("No value was given for the variable $" + expression.variable() + ".");
        case NSExpressionType::KeyPath: return path(expression.keyPath(), expression.operand().get());
        case NSExpressionType::Aggregate: break;
        }
        for (auto const& member : expression.collection()) this->expression(*member);
        return {.isOpen = true};
    }

    Place path(KeyPath const& path, NSExpression const* operand = nullptr) {
        auto const start = operand ? expression(*operand) : Place{&entity_};
        path_ = &path;
        return followed(start, path.components());
    }

    std::string inPath() const {
        return path_->components().size() > 1 ? " (in \"" + shownKey(path_->text()) + "\")" : std::string();
    }

    Place followed(Place place, Components path) {
        for (; !path.empty() && !place.isOpen; path = path.subspan(1)) {
            auto const& key = path.front();
            if (key.starts_with('@')) return aggregated(place, path);
            bool const isFirst = path.size() == path_->components().size();
            if (place.entity && (key == "self" || (isFirst && key == "SELF"))) continue;
            if (!place.entity)
                refuse("An attribute's values have no keys, so there is no \"" + shownKey(key) + "\"" + inPath() + ".");
            if (auto const* property = place.entity->propertyNamed(key))
                place = placeOf(*property, place.isMany);
            else
                return followedBelow(place, path);
        }
        return place;
    }

    /// A key that only sub-entities have. Records of the others have no value there.
    Place followedBelow(Place const& place, Components path) {
        std::optional<Place> found;
        visitBelow(*place.entity, path.front(), [&](NSPropertyDescription const& property) {
            found = followed(placeOf(property, place.isMany), path.subspan(1));
        });
        if (found) return *found;
        refuse("The entity " + place.entity->name() + " has no key \"" + shownKey(path.front()) + "\"" + inPath() +
               nearestKeys(*place.entity, path.front()) + ".");
    }

    static void visitBelow(NSEntityDescription const& entity, std::string const& key,
                           FunctionRef<void(NSPropertyDescription const&)> visit) {
        for (auto const* child : entity.subentities()) {
            if (auto const* property = child->propertyNamed(key))
                visit(*property);
            else
                visitBelow(*child, key, visit);
        }
    }

    Place aggregated(Place place, Components path) {
        auto const& name = path.front();
        static constexpr std::string_view known[] = {"@count", "@sum", "@avg", "@min", "@max"};
        if (std::ranges::find(known, name) == std::end(known)) refuse("There is no operator " + shownKey(name) + inPath() + ".");
        if (!place.isMany) refuse(name + " asks for a to-many relationship before it" + inPath() + ".");
        if (name != "@count") followed(place, path.subspan(1));
        return {};
    }

    void prefetched(KeyPath const& path) {
        auto const* entity = &entity_;
        for (auto const& key : path.components()) {
            auto const* property = entity->propertyNamed(key);
            auto const* relationship = property ? property->asRelationship() : nullptr;
            if (!relationship)
                refuse("The entity " + entity->name() + " has no relationship \"" + shownKey(key) + "\" to be prefetched" +
                       nearestKeys(*entity, key) + ".");
            entity = relationship->destinationEntity();
        }
    }

    NSEntityDescription const& entity_;
    KeyPath const* path_ = nullptr; // that is being followed
};

} // namespace

Ref<NSError> problemWithFetchRequest(NSFetchRequest const& request, NSEntityDescription const& entity) {
    try {
        Check(entity).request(request);
        return nullptr;
    } catch (ErrorException const& failure) {
        return failure.error();
    }
}

} // namespace Tessarin
