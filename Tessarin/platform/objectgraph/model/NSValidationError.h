#pragma once
#include <string_view>

namespace Tessarin {

/// The domain of errors of a save whose values break the rules of the model.
inline constexpr std::string_view NSValidationErrorDomain = "NSValidationErrorDomain";

enum class NSValidationError : int {
    WrongKind = 1550,
    MissingMandatoryProperty = 1570,
    RelationshipLacksMinimumCount = 1580,
    RelationshipExceedsMaximumCount = 1590,
    RelationshipDeniedDelete = 1600,
    NumberTooLarge = 1610,
    NumberTooSmall = 1620,
    DateTooLate = 1630,
    DateTooSoon = 1640,
    StringTooLong = 1660,
    StringTooShort = 1670,
    StringPatternMatching = 1680
};

// Keys of such an error's userInfo.
inline constexpr std::string_view NSValidationEntityErrorKey = "NSValidationErrorEntity"; // the entity's name
inline constexpr std::string_view NSValidationKeyErrorKey = "NSValidationErrorKey"; // the property's name
inline constexpr std::string_view NSValidationValueErrorKey = "NSValidationErrorValue";

} // namespace Tessarin
