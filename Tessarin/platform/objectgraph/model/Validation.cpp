// What is wrong with values before a save.
#include "Tessarin/platform/foundation/predicates/TextPattern.h"
#include "Tessarin/platform/foundation/values/NSError.h"
#include "Tessarin/platform/objectgraph/model/NSEntityDescription.h"
#include "Tessarin/platform/objectgraph/model/NSValidationError.h"

#include <fmt/format.h>

namespace Tessarin {
namespace {

using Kind = Value::Kind;

/// The error "Entity.property " + `reason`.
Ref<NSError> validationFailure(NSPropertyDescription const& property, NSValidationError code, std::string_view reason,
                               Value const& value) {
    Dictionary details{{NSLocalizedDescriptionKey, property.description() + " " + std::string{reason}},
                       {NSValidationEntityErrorKey, property.entity() ? property.entity()->name() : std::string{}},
                       {NSValidationKeyErrorKey, property.name()}};
    if (!value.isAbsent()) details.set(NSValidationValueErrorKey, value);
    return NSError::errorWithDomain(NSValidationErrorDomain, static_cast<std::int64_t>(code), std::move(details));
}

struct BoundErrors {
    NSValidationError tooSmall, tooLarge;
    char const* what;
};

BoundErrors boundErrors(Kind kind) {
    if (kind == Kind::Text) return {NSValidationError::StringTooShort, NSValidationError::StringTooLong, "has a length"};
    if (kind == Kind::Date) return {NSValidationError::DateTooSoon, NSValidationError::DateTooLate, "has a date"};
    return {NSValidationError::NumberTooSmall, NSValidationError::NumberTooLarge, "has a value"};
}

/// What the bounds are compared with; absent for kinds that have none.
std::optional<double> measure(Value const& value) {
    switch (value.kind()) {
    case Kind::Text: return static_cast<double>(codePointCount(value.text()));
    case Kind::Date: return value.dateSeconds();
    default: return value.isNumber() || value.kind() == Kind::Decimal ? std::optional(value.number()) : std::nullopt;
    }
}

} // namespace

Ref<NSError> NSAttributeDescription::validate(Value const& value) const {
    auto const failure = [&](NSValidationError code, std::string_view reason) {
        return validationFailure(*this, code, reason, value);
    };
    if (value.isAbsent())
        return isOptional() ? nullptr : failure(NSValidationError::MissingMandatoryProperty, "is mandatory but has no value");
    if (!holdsKindOf(value))
        return failure(NSValidationError::WrongKind, "cannot hold a value of this kind: " + value.description());
    if (minimum() || maximum()) {
        auto const measured = measure(value);
        auto const errors = boundErrors(value.kind());
        if (measured && minimum() && *measured < *minimum())
            return failure(errors.tooSmall, fmt::format("{} of {}, below the minimum of {}", errors.what, *measured, *minimum()));
        if (measured && maximum() && *measured > *maximum())
            return failure(errors.tooLarge, fmt::format("{} of {}, above the maximum of {}", errors.what, *measured, *maximum()));
    }
    if (pattern_ && value.isText() && !pattern_->matchesWhole(value.text()))
        return failure(NSValidationError::StringPatternMatching, "does not match the pattern " + regularExpression());
    return nullptr;
}

Ref<NSError> NSRelationshipDescription::validateCount(std::size_t count) const {
    auto const failure = [&](NSValidationError code, std::string_view reason) {
        return validationFailure(*this, code, reason, {});
    };
    if (count == 0 && !isOptional())
        return failure(NSValidationError::MissingMandatoryProperty, "is mandatory but has no destination");
    if (count < minCount() && !isOptional())
        return failure(NSValidationError::RelationshipLacksMinimumCount,
                       fmt::format("has {} destinations, at least {} are needed", count, minCount()));
    if (maxCount() != 0 && count > maxCount())
        return failure(NSValidationError::RelationshipExceedsMaximumCount,
                       fmt::format("has {} destinations, at most {} are allowed", count, maxCount()));
    return nullptr;
}

Ref<NSError> NSRelationshipDescription::wrongKind(Value const& value) const {
    return validationFailure(*this, NSValidationError::WrongKind, "cannot lead to this: " + value.description(), value);
}

} // namespace Tessarin
